#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "model_builder.hh"

namespace mibctl {
namespace {

using Names = std::vector<std::string>;

Names paths_of(const Model& model) {
  Names paths;
  for_each(static_cast<const Entry&>(*model.root),
           [&](const Entry& entry) { paths.push_back(entry.path()); });
  return paths;
}

Model small_model() {
  Model model = make_model();
  add_parameter(*model.root, "A");
  add_parameter(*model.root, "HostNumberOfEntries");
  Entry* const table = add_table(*model.root, "Host.");
  table->entries = "HostNumberOfEntries";
  add_parameter(*table, "Name");
  add_parameter(*table, "Layer");
  add_parameter(*add_object(*table, "Deep."), "B");
  return model;
}

Names chosen(Model model, const Names& profiles, const Names& patterns) {
  choose(model, profiles, patterns);
  return paths_of(model);
}

std::string error_of(Model model, const Names& profiles, const Names& patterns) {
  try {
    choose(model, profiles, patterns);
  } catch (const Error& error) {
    EXPECT_EQ(error.status, Status::refused);
    return error.what();
  }
  return "no error";
}

TEST(Choose, WithoutAnythingNamedEverythingStays) {
  EXPECT_EQ(chosen(small_model(), {}, {}), paths_of(small_model()));
}

TEST(Choose, APatternKeepsWhatItMatchesAndTheObjectsAbove) {
  Model model = make_model();
  Entry* const object = add_object(*model.root, "O.");
  add_parameter(*object, "A");
  add_parameter(*object, "B");
  EXPECT_EQ(chosen(std::move(model), {}, {"Gw.O.A"}), (Names{"Gw.", "Gw.O.", "Gw.O.A"}));
}

TEST(Choose, ATablesCountingParameterStaysWithIt) {
  EXPECT_EQ(chosen(small_model(), {}, {"Gw.Host.{i}.Deep.**"}),
            (Names{"Gw.", "Gw.HostNumberOfEntries", "Gw.Host.{i}.", "Gw.Host.{i}.Deep.",
                   "Gw.Host.{i}.Deep.B"}));
}

TEST(Choose, ACountingParameterThatTheModelLacksIsNoMatter) {
  Model model = make_model();
  add_table(*model.root, "T.")->entries = "TNumberOfEntries";
  EXPECT_EQ(chosen(std::move(model), {}, {"Gw.T.{i}."}), (Names{"Gw.", "Gw.T.{i}."}));
}

TEST(Choose, SeveralPatternsAddUp) {
  EXPECT_EQ(chosen(small_model(), {}, {"Gw.A", "Gw.HostNumber*"}),
            (Names{"Gw.", "Gw.A", "Gw.HostNumberOfEntries"}));
}

TEST(Choose, RefusesAPlainPatternThatMatchesNothingWithWhatIsNear) {
  const std::string error = error_of(small_model(), {}, {"Gw.Host.{i}.Nane"});
  EXPECT_TRUE(error.starts_with(
      "Gw.Host.{i}.Nane: matches nothing in the model (did you mean Gw.Host.{i}.Name"))
      << error;
}

TEST(Choose, RefusesAWildcardThatMatchesNothing) {
  EXPECT_EQ(error_of(small_model(), {}, {"Gw.Host.{i}.Nane*"}),
            "Gw.Host.{i}.Nane*: matches nothing in the model");
}

Model model_with_profiles() {
  Model model = small_model();
  model.profiles = {
      {"Base:1", {"model.xml", 5, 3}, {}, {"Gw.A"}},
      {"More:1", {"model.xml", 6, 3}, {"Base:1"}, {"Gw.Host.{i}.", "Gw.Host.{i}.Name"}},
      {"More:2", {"model.xml", 7, 3}, {"More:1"}, {"Gw.Host.{i}.Layer", "Gw.Unknown"}},
  };
  return model;
}

TEST(Choose, AProfileKeepsItsEntries) {
  EXPECT_EQ(chosen(model_with_profiles(), {"Base:1"}, {}), (Names{"Gw.", "Gw.A"}));
}

TEST(Choose, AProfileBringsWhatItIncludesAndThatIncludes) {
  EXPECT_EQ(chosen(model_with_profiles(), {"More:2"}, {}),
            (Names{"Gw.", "Gw.A", "Gw.HostNumberOfEntries", "Gw.Host.{i}.", "Gw.Host.{i}.Name",
                   "Gw.Host.{i}.Layer"}));
}

TEST(Choose, ProfilesAndPatternsAddUp) {
  EXPECT_EQ(chosen(model_with_profiles(), {"Base:1"}, {"Gw.HostNumber*"}),
            (Names{"Gw.", "Gw.A", "Gw.HostNumberOfEntries"}));
}

TEST(Choose, ProfilesThatIncludeEachOtherEnd) {
  Model model = model_with_profiles();
  model.profiles[0].includes = {"More:1"};
  EXPECT_EQ(chosen(std::move(model), {"Base:1"}, {}),
            (Names{"Gw.", "Gw.A", "Gw.HostNumberOfEntries", "Gw.Host.{i}.", "Gw.Host.{i}.Name"}));
}

TEST(Choose, RefusesAnUnknownProfileWithWhatIsNear) {
  const std::string error = error_of(model_with_profiles(), {"Bade:1"}, {});
  EXPECT_TRUE(error.starts_with("Bade:1: the model has no such profile (did you mean Base:1"))
      << error;
}

TEST(Choose, RefusesAProfileThatIncludesWhatThereIsNot) {
  Model model = model_with_profiles();
  model.profiles[1].includes = {"Gone:1"};
  EXPECT_EQ(error_of(std::move(model), {"More:2"}, {}),
            "model.xml:6:3: profile More:1 includes Gone:1, which there is not");
}

}  // namespace
}  // namespace mibctl
