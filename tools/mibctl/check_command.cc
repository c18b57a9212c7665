// The verb that finds what a stored document loses.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands.hh"
#include "lint.hh"
#include "text.hh"

namespace mibctl {

namespace {

// A document, and the file that it stands in.
struct Source {
  std::string file, text;
};

// Of a pair of images: the one that a start would load, else one to say what is wrong with.
Source source_in(const std::string& folder) {
  const Pair pair = read_pair(folder);
  const Copy* const loaded = pair.loaded();
  if (loaded) {
    if (loaded != &pair.main)
      std::fprintf(stderr, "%s: %s\n", folder.c_str(), pair.route().c_str());
    return {loaded->path, loaded->text};
  }
  for (const Copy* copy : {&pair.main, &pair.backup})
    if (copy->image.valid()) return {copy->path, copy->text};
  return {folder, open_flash(folder)->load()};  // tells why there is none
}

std::unique_ptr<Store> named_store(const Options& options, const std::string& path) {
  const bool named = !options.config.empty() || !options.flash.empty() || !options.image.empty();
  if (!path.empty() && named)
    throw Error(Status::usage, path, "name one configuration: it, --config, --flash or --image");
  return path.empty() ? store_of(options) : open_any(path);
}

void print_line(const std::string& file, const Finding& finding) {
  const std::string detail = finding.detail.empty() ? "" : " (" + finding.detail + ")";
  std::printf("%s: %s: %s: %s%s\n", Place{file, finding.line, finding.column}.text().c_str(),
              finding.lost ? "lost" : "note", finding.name.c_str(), finding.text.c_str(),
              detail.c_str());
}

void print_lines(const std::string& file, const std::vector<Finding>& findings, size_t lost) {
  for (const Finding& finding : findings) print_line(file, finding);
  if (findings.empty()) return;
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s, %s lost\n", file.c_str(),
               counted(findings.size(), "finding").c_str(), grouped(lost).c_str());
}

void print_json(const std::string& file, const std::vector<Finding>& findings) {
  nlohmann::ordered_json records = nlohmann::ordered_json::array();
  for (const Finding& finding : findings)
    records.push_back({{"file", file},
                       {"line", finding.line},
                       {"column", finding.column},
                       {"name", finding.name},
                       {"text", finding.text},
                       {"detail", finding.detail},
                       {"lost", finding.lost}});
  // Bytes that are not UTF-8 would not make a JSON text.
  std::printf("%s\n",
              records.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

}  // namespace

bool print_check(const Model& model, Store& store, bool json) {
  const std::string& name = store.name();
  const Source source = is_folder(name) ? source_in(name) : Source{name, store.load()};
  const std::vector<Finding> findings = lint(model, source.text);
  const auto lost = static_cast<size_t>(std::count_if(
      findings.begin(), findings.end(), [](const Finding& finding) { return finding.lost; }));
  if (json)
    print_json(source.file, findings);
  else
    print_lines(source.file, findings, lost);
  return lost > 0;
}

void add_check_command(CLI::App& app, Options& options) {
  CLI::App* const command = app.add_subcommand(
      "check", "Find what a start would skip in silence, and what the next save would drop");
  command->group("Configurations");
  command->footer(
      "Prints FILE:LINE:COLUMN: lost: NAME: TEXT (DETAIL) for what would be lost, with \"note\"\n"
      "for what is only worth knowing; of a pair of images for the one that a start would load.\n"
      "Status 1 when anything would be lost, 0 when not.\n"
      "\n"
      "Example:\n"
      "  mibctl --model gateway-model.xml --overlay gateway.toml check conf.xml");
  const auto path = std::make_shared<std::string>();
  command->add_option("CONFIGURATION", *path,
                      "A document, an image or a folder with both images; else the one that "
                      "--config, --flash or --image names");
  command->callback([&options, path] {
    const Model model = model_of(options);
    if (print_check(model, *named_store(options, *path), options.json))
      options.status = Status::refused;
  });
}

}  // namespace mibctl
