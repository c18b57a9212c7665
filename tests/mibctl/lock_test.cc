#include <gtest/gtest.h>

#include <string>

#include "model_builder.hh"

namespace mibctl {
namespace {

std::string error_of_parsing(const std::string& text) {
  try {
    parse_lock("gw.lock", text);
  } catch (const Error& error) {
    EXPECT_EQ(error.status, Status::refused);
    return error.what();
  }
  return "no error";
}

std::string error_of_assigning(Model& model, Lock lock) {
  try {
    assign_ids(model, lock);
  } catch (const Error& error) {
    EXPECT_EQ(error.status, Status::refused);
    return error.what();
  }
  return "no error";
}

void add_parameters(Entry& above, unsigned count) {
  for (unsigned i = 0; i < count; ++i) add_parameter(above, "P" + std::to_string(i));
}

TEST(LockFile, IsReadWithCommentsAndBlankLines) {
  const Lock lock = parse_lock("gw.lock", "# head\n\n0 Gw.\n7 Gw.T.{i}.A\n");
  EXPECT_EQ(lock.ids, (std::map<std::string, uint32_t>{{"Gw.", 0}, {"Gw.T.{i}.A", 7}}));
}

TEST(LockFile, MayEndWithoutALineFeed) { EXPECT_EQ(parse_lock("gw.lock", "0 Gw.").ids.size(), 1u); }

TEST(LockFile, IsRenderedInTheOrderOfIds) {
  const Lock lock{{{"Gw.", 0}, {"Gw.A", 10}, {"Gw.B", 9}}};
  EXPECT_EQ(render_lock(make_model(), lock),
            "# Unique ids of Gw:1.0.\n"
            "# Made by mibctl schema compile; keep it with the sources: ids in it stay\n"
            "# what they are, and those of entries that are gone are not given out again.\n"
            "0 Gw.\n"
            "9 Gw.B\n"
            "10 Gw.A\n");
}

TEST(LockFile, ReadsBackAsItWasRendered) {
  const Lock lock{{{"Gw.", 0}, {"Gw.T.{i}.", 4}, {"Gw.T.{i}.A", 1999}}};
  EXPECT_EQ(parse_lock("gw.lock", render_lock(make_model(), lock)), lock);
}

TEST(LockFile, AModelsNameCannotLeaveTheComment) {
  Model model = make_model();
  model.name = "Gw\n5 Gw.A";
  EXPECT_TRUE(parse_lock("gw.lock", render_lock(model, Lock())).ids.empty());
}

TEST(LockFile, RefusesALineOfAnotherForm) {
  const std::string text = "not a line of a lock file (expected: ID PATH)";
  EXPECT_EQ(error_of_parsing("0 Gw.\nGw.A\n"), "gw.lock:2: " + text);
  EXPECT_EQ(error_of_parsing("5 \n"), "gw.lock:1: " + text);
  EXPECT_EQ(error_of_parsing("5  Gw.A\n"), "gw.lock:1: " + text);
  EXPECT_EQ(error_of_parsing("5 Gw.A Gw.B\n"), "gw.lock:1: " + text);
  EXPECT_EQ(error_of_parsing("5 Gw.A\r\n"), "gw.lock:1: " + text);
}

TEST(LockFile, RefusesAnIdThatIsNoNumberOrTooHigh) {
  EXPECT_EQ(error_of_parsing("x Gw.\n"), "gw.lock:1: not a unique id: x (0 to 1999)");
  EXPECT_EQ(error_of_parsing("-1 Gw.\n"), "gw.lock:1: not a unique id: -1 (0 to 1999)");
  EXPECT_EQ(error_of_parsing("2000 Gw.\n"), "gw.lock:1: not a unique id: 2000 (0 to 1999)");
  EXPECT_EQ(parse_lock("gw.lock", "1999 Gw.A\n").ids.at("Gw.A"), 1999u);
}

TEST(LockFile, RefusesAnIdThatIsGivenTwice) {
  EXPECT_EQ(error_of_parsing("#\n3 Gw.A\n\n3 Gw.B\n"),
            "gw.lock:4: unique id 3 is given twice (first at gw.lock:2)");
}

TEST(LockFile, RefusesAPathThatHasTwoIds) {
  EXPECT_EQ(error_of_parsing("3 Gw.A\n4 Gw.A\n"),
            "gw.lock:2: Gw.A has an id already (first at gw.lock:1)");
}

TEST(AssignIds, NumbersInTheModelsOrderWithoutALock) {
  Model model = make_model();
  Entry* const object = add_object(*model.root, "O.");
  add_parameter(*object, "A");
  add_parameter(*model.root, "B");
  Lock lock;
  assign_ids(model, lock);
  EXPECT_EQ(lock.ids, (std::map<std::string, uint32_t>{
                          {"Gw.", 0}, {"Gw.O.", 1}, {"Gw.O.A", 2}, {"Gw.B", 3}}));
  EXPECT_EQ(at(model, "Gw.O.A").uid, 2u);
}

TEST(AssignIds, AnEntryKeepsItsLockedId) {
  Model model = make_model();
  add_parameter(*model.root, "New");
  add_parameter(*model.root, "A");
  Lock lock{{{"Gw.", 0}, {"Gw.A", 1}}};
  assign_ids(model, lock);
  EXPECT_EQ(at(model, "Gw.A").uid, 1u);
  EXPECT_EQ(at(model, "Gw.New").uid, 2u);
}

TEST(AssignIds, AnIdOfAnEntryThatIsGoneStaysTaken) {
  Model model = make_model();
  add_parameter(*model.root, "New");
  Lock lock{{{"Gw.", 0}, {"Gw.Gone", 1}}};
  assign_ids(model, lock);
  EXPECT_EQ(at(model, "Gw.New").uid, 2u);
  EXPECT_EQ(lock.ids.at("Gw.Gone"), 1u);
}

TEST(AssignIds, AnEntryThatComesBackHasItsOldId) {
  Lock lock{{{"Gw.", 0}, {"Gw.A", 5}}};
  Model without = make_model();
  assign_ids(without, lock);
  Model with = make_model();
  add_parameter(*with.root, "A");
  assign_ids(with, lock);
  EXPECT_EQ(at(with, "Gw.A").uid, 5u);
}

TEST(AssignIds, ANewEntryGetsTheLowestIdThatTheLockNeverHeld) {
  Model model = make_model();
  add_parameter(*model.root, "A");
  add_parameter(*model.root, "B");
  Lock lock{{{"Gw.", 0}, {"Gw.Gone", 2}}};
  assign_ids(model, lock);
  EXPECT_EQ(at(model, "Gw.A").uid, 1u);
  EXPECT_EQ(at(model, "Gw.B").uid, 3u);
}

TEST(AssignIds, RefusesALockThatGivesTheRootAnotherId) {
  Model model = make_model();
  EXPECT_EQ(error_of_assigning(model, {{{"Gw.", 4}}}),
            "Gw.: has unique id 4 in the lock file (0 is for the root, Gw.: is it another model's "
            "lock file?)");
}

TEST(AssignIds, RefusesALockThatGivesTheRootsIdToAnother) {
  Model model = make_model();
  EXPECT_EQ(error_of_assigning(model, {{{"Other.", 0}}}),
            "Other.: has unique id 0 in the lock file (0 is for the root, Gw.: is it another "
            "model's lock file?)");
}

TEST(AssignIds, TakesAModelOfAllIds) {
  Model model = make_model();
  add_parameters(*model.root, 1999);
  Lock lock;
  assign_ids(model, lock);
  EXPECT_EQ(at(model, "Gw.P1998").uid, 1999u);
}

TEST(AssignIds, RefusesTooManyWithTheBiggestSubtrees) {
  Model model = make_model();
  Entry* const big = add_object(*model.root, "Big.");
  const char* const names[] = {"A.", "B.", "C.", "D.", "E."};
  unsigned count = 200;
  for (const char* const name : names) add_parameters(*add_object(*big, name), count += 20);
  add_parameters(*big, 600);
  add_parameters(*add_object(*model.root, "Small."), 250);
  EXPECT_EQ(error_of_assigning(model, {}),
            "Gw:1.0: 2,158 unique ids, at most 2,000 (choose a subset with --profile or --keep; "
            "biggest: Gw.Big.E. 301, Gw.Big.D. 281, Gw.Big.C. 261, Gw.Small. 251, Gw.Big.B. 241)");
}

TEST(AssignIds, RefusesTooManyParametersInOneObject) {
  Model model = make_model();
  add_parameters(*model.root, 2000);
  EXPECT_EQ(error_of_assigning(model, {}),
            "Gw:1.0: 2,001 unique ids, at most 2,000 (choose a subset with --profile or --keep)");
}

TEST(AssignIds, SaysWhenOnlyIdsOfOthersMakeItTooMany) {
  Model model = make_model();
  add_parameters(*model.root, 1999);
  EXPECT_EQ(error_of_assigning(model, {{{"Gw.", 0}, {"Gw.Gone", 7}}}),
            "Gw:1.0: 2,001 unique ids, at most 2,000 (1 of them kept for what is not in it: "
            "delete the lock file to number anew, which changes every id)");
}

TEST(AssignIds, LeavesTheLockAsItWasWhenItRefuses) {
  Model model = make_model();
  add_parameters(*model.root, 2000);
  Lock lock{{{"Gw.", 0}}};
  EXPECT_THROW(assign_ids(model, lock), Error);
  EXPECT_EQ(lock.ids.size(), 1u);
}

}  // namespace
}  // namespace mibctl
