// The verbs of the schema compiler.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands.hh"
#include "image.hh"
#include "report.hh"
#include "text.hh"

namespace mibctl {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr uint64_t kMaxLock = 4 << 20;

struct Arguments {
  std::vector<std::string> models, instances;
  std::string left, right, lock, folder, prefix, name, depfile;
  int depth = INT32_MAX;
  bool frozen = false, notes = false;
};

// The model without unique ids: of the files named behind the verb, or of --model.
Model chosen_model(const Options& options, const std::vector<std::string>& files) {
  const std::vector<std::string>& named = files.empty() ? options.models : files;
  if (named.empty()) throw Error(Status::usage, "schema", "name the model's document");
  Model model = read_model(named, options.select);
  if (!options.overlay.empty()) apply_overlay(model, options.overlay);
  choose(model, options.profiles, options.keeps);
  complete(model);
  return model;
}

// Empty while there is no such file.
Lock stored_lock(const std::string& file) {
  std::error_code problem;  // read_file says what it is
  if (file.empty() || fs::status(file, problem).type() == fs::file_type::not_found) return {};
  return parse_lock(file, read_file(file, kMaxLock));
}

void print_kinds(const std::vector<Note>& notes) {
  for (const NoteKind& kind : kinds_of(notes))
    std::printf("  %s: %s%s%s\n", kind.kind.c_str(), grouped(kind.count).c_str(),
                kind.first.empty() ? ""
                : kind.count == 1  ? ", "
                                   : ", first ",
                kind.first.c_str());
}

void print_notes(const std::vector<Note>& notes) {
  for (const Note& note : notes)
    std::printf("%s: %s%s%s%s%s\n", note.place.text().c_str(), note.path.c_str(),
                note.path.empty() ? "" : ": ", note.kind.c_str(), note.detail.empty() ? "" : ": ",
                note.detail.c_str());
}

void make_folder(const std::string& folder) {
  std::error_code problem;
  fs::create_directories(folder, problem);
  if (problem) throw Error(Status::storage, folder, "cannot be made", problem.message());
}

// A file's name in a rule for make.
std::string in_rule(const std::string& file) {
  std::string text;
  for (const char c : file) {
    if (c == ' ' || c == '#') text += '\\';
    if (c == '$') text += '$';
    text += c;
  }
  return text;
}

// A rule for make: the sources depend on all that was read.
std::string rule_of(const Model& model, const std::string& source, const std::string& header) {
  std::string rule = in_rule(source) + ' ' + in_rule(header) + ':';
  for (const std::string& file : model.files) rule += ' ' + in_rule(file);
  return rule + '\n';
}

// The source comes last: where it is there, all is.
void write_all(const Model& model, const Lock& stored, const Lock& lock,
               const Arguments& arguments) {
  const Generated generated = generate(model);
  const std::string source = arguments.folder + "/" + generated.source_name;
  const std::string header = arguments.folder + "/" + generated.header_name;
  make_folder(arguments.folder);
  if (!arguments.depfile.empty()) write_file(arguments.depfile, rule_of(model, source, header));
  if (!arguments.lock.empty() && lock != stored)
    write_file(arguments.lock, render_lock(model, lock));
  write_file(header, generated.header);
  write_file(source, generated.source);
}

// What may name files, constants and functions.
std::string check_prefix(const std::string& name) {
  return is_identifier(name) ? "" : "not a name for C: letters, digits and underscores";
}

void compile(const Options& options, const Arguments& arguments) {
  Model model = chosen_model(options, arguments.models);
  if (!arguments.name.empty()) model.prefix = arguments.name;
  const Lock stored = stored_lock(arguments.lock);
  Lock lock = stored;
  assign_ids(model, lock);
  if (arguments.frozen && lock != stored)
    throw refused(
        arguments.lock, "does not hold every entry's unique id",
        grouped(lock.ids.size() - stored.ids.size()) + " missing; compile without --frozen");
  write_all(model, stored, lock, arguments);
  const uint32_t ids = report_of(model).ids;
  std::printf("%s: %s, %s left\n", model.name.c_str(), counted(ids, "unique id").c_str(),
              grouped(kMaxIds - ids).c_str());
  print_kinds(model.notes);
}

InstanceCounts counts_of(const Model& model, const std::vector<std::string>& settings) {
  InstanceCounts counts;
  for (const std::string& setting : settings) {
    const size_t equals = setting.rfind('=');
    const auto number = equals == std::string::npos
                            ? std::nullopt
                            : parse_number(std::string_view(setting).substr(equals + 1), 0, 999);
    if (!number) throw Error(Status::usage, setting, "not TABLE=N", "N from 0 to 999");
    bool found = false;
    for_each(*model.root, [&](const Entry& entry) {
      if (!entry.multi || !matches(setting.substr(0, equals), entry.path())) return;
      counts[entry.path()] = static_cast<uint32_t>(*number);
      found = true;
    });
    if (!found) throw refused(setting.substr(0, equals), "no table matches");
  }
  return counts;
}

void print_counts(const char* title, const std::map<std::string, uint32_t>& counts) {
  std::printf("%s:", title);
  const char* separator = " ";
  for (const auto& [name, count] : counts) {
    std::printf("%s%s %s", separator, name.c_str(), grouped(count).c_str());
    separator = ", ";
  }
  std::printf("\n");
}

void print_size(const char* title, uint64_t bytes) {
  const std::string room = bytes <= kMaxDocument ? grouped(kMaxDocument - bytes) + " left"
                                                 : grouped(bytes - kMaxDocument) + " too many";
  std::printf("%s: %s bytes, %s of %s\n", title, grouped(bytes).c_str(), room.c_str(),
              grouped(kMaxDocument).c_str());
}

Json report_json(const Model& model, const Report& report, const DocumentSize& size) {
  Json least = Json::object();
  for (const auto& [table, count] : report.least) least[table] = count;
  Json notes = Json::object();
  for (const NoteKind& kind : kinds_of(model.notes)) notes[kind.kind] = kind.count;
  return {{"model", model.name},
          {"ids", report.ids},
          {"idsLeft", kMaxIds - report.ids},
          {"objects", report.objects},
          {"tables", report.tables},
          {"parameters", report.parameters},
          {"depth", report.depth},
          {"longestName", report.longest},
          {"longestNameBytes", report.longest_bytes},
          {"byType", report.by_type},
          {"byOwner", report.by_owner},
          {"bySaving", report.by_saving},
          {"byModelType", report.by_source},
          {"byStatus", report.by_status},
          {"leastInstances", least},
          {"document",
           {{"limit", kMaxDocument},
            {"defaults", size.defaults},
            {"modified", size.modified},
            {"longest", size.longest},
            {"unbounded", size.unbounded}}},
          {"notes", notes}};
}

void print_report(const Model& model, const Report& report, const DocumentSize& size) {
  std::printf("model: %s\n", model.name.c_str());
  std::printf("unique ids: %s, %s left\n", grouped(report.ids).c_str(),
              grouped(kMaxIds - report.ids).c_str());
  std::printf("objects: %s, %s of them tables\n", grouped(report.objects).c_str(),
              grouped(report.tables).c_str());
  std::printf("parameters: %s\n", grouped(report.parameters).c_str());
  std::printf("depth: %u of %u\n", report.depth, kMaxDepth);
  std::printf("longest full name: %u of %u bytes, %s\n", report.longest_bytes, kMaxFullName,
              report.longest.c_str());
  print_counts("by type", report.by_type);
  print_counts("by owner", report.by_owner);
  print_counts("saved", report.by_saving);
  print_counts("by the model's type", report.by_source);
  print_counts("by status", report.by_status);
  for (const auto& [table, count] : report.least)
    std::printf("the factory document must hold %s: %s\n", counted(count, "instance").c_str(),
                table.c_str());
  print_size("document, nothing modified", size.defaults);
  print_size("document, all saved, values as long as defaults", size.modified);
  print_size("document, all saved, values at their longest", size.longest);
  if (size.unbounded)
    std::printf("values without a longest length: %s\n", grouped(size.unbounded).c_str());
  std::printf("notes:%s\n", model.notes.empty() ? " none" : "");
  print_kinds(model.notes);
}

void report(const Options& options, const Arguments& arguments) {
  Model model = chosen_model(options, arguments.models);
  Lock lock = stored_lock(arguments.lock);
  assign_ids(model, lock);
  if (arguments.notes) return print_notes(model.notes);
  const Report facts = report_of(model);
  const DocumentSize size = document_size(model, counts_of(model, arguments.instances));
  if (options.json)
    std::printf("%s\n", report_json(model, facts, size).dump(2).c_str());
  else
    print_report(model, facts, size);
}

Json entry_json(const Entry& entry, int depth) {
  Json json = {{"name", entry.name}, {"type", type_text(entry)}, {"writable", entry.writable}};
  if (entry.defval) json["default"] = *entry.defval;
  if (!entry.is_object() || depth <= 1) return json;
  Json& children = json["children"] = Json::array();
  for (const auto& child : entry.children) children.push_back(entry_json(*child, depth - 1));
  return json;
}

void print_entry(const Entry& entry, int level, int depth) {
  std::printf("%*s%s%s  %s%s%s%s%s\n", 2 * level, "", entry.name.c_str(), entry.multi ? "{i}." : "",
              type_text(entry).c_str(), entry.writable ? " W" : "", entry.defval ? " = \"" : "",
              entry.defval ? entry.defval->c_str() : "", entry.defval ? "\"" : "");
  if (level + 1 >= depth) return;
  for (const auto& child : entry.children) print_entry(*child, level + 1, depth);
}

void tree(const Options& options, const Arguments& arguments) {
  const Model model = chosen_model(options, arguments.models);
  const Entry* const top =
      arguments.prefix.empty() ? model.root.get() : find_entry(*model.root, arguments.prefix);
  if (!top) throw refused(arguments.prefix, "not in the model", "paths have {i}. behind a table");
  if (options.json)
    std::printf("%s\n", entry_json(*top, arguments.depth).dump(2).c_str());
  else
    print_entry(*top, 0, arguments.depth);
}

void diff(Options& options, const Arguments& arguments) {
  const Model left = chosen_model(options, {arguments.left});
  const Model right = chosen_model(options, {arguments.right});
  const std::vector<ModelDifference> differences = compare_models(left, right);
  Json records = Json::array();
  for (const auto& [path, before, after] : differences) {
    if (options.json) {
      records.push_back({{"path", path}, {"left", before}, {"right", after}});
      continue;
    }
    if (!before.empty()) std::printf("-%s %s\n", path.c_str(), before.c_str());
    if (!after.empty()) std::printf("+%s %s\n", path.c_str(), after.c_str());
  }
  if (options.json) std::printf("%s\n", records.dump(2).c_str());
  if (!differences.empty()) options.status = Status::refused;
}

CLI::App* verb(CLI::App* schema, const char* name, const char* help, const char* example) {
  CLI::App* const command = schema->add_subcommand(name, help);
  command->footer(std::string("Example:\n  mibctl schema ") + example);
  return command;
}

}  // namespace

void add_schema_commands(CLI::App& app, Options& options) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* const schema = app.add_subcommand("schema", "Compile and look at data models");
  schema->group("Models");
  schema->require_subcommand(1);
  const char* const models = "Data-model documents: the model, and services below it";

  CLI::App* command =
      verb(schema, "compile", "Write the C source and header of a model's schema block",
           "compile gateway-model.xml --overlay gateway.toml --lock gateway.lock -o build");
  command->add_option("MODEL", arguments->models, models);
  command->add_option("-o,--output", arguments->folder, "The folder to write to")
      ->type_name("DIR")
      ->required();
  command
      ->add_option("--lock", arguments->lock,
                   "Keeps unique ids as they are; made, and grown with the model")
      ->type_name("FILE");
  command
      ->add_option("--name", arguments->name,
                   "What files and constants are named after; the overlay's without it")
      ->type_name("NAME")
      ->check(check_prefix);
  command->add_option("--depfile", arguments->depfile, "Write what the sources depend on, for make")
      ->type_name("FILE");
  command->add_flag("--frozen", arguments->frozen, "Refuse to change the lock file")
      ->needs("--lock");
  command->callback([&options, arguments] { compile(options, *arguments); });

  command =
      verb(schema, "report", "Print a model's figures: ids, depth, types, owners, document sizes",
           "report gateway-model.xml --instances 'InternetGatewayDevice.LANDevice.{i}.**=4'");
  command->add_option("MODEL", arguments->models, models);
  command->add_option("--lock", arguments->lock, "The lock file, for the ids it keeps")
      ->type_name("FILE");
  command
      ->add_option("--instances", arguments->instances,
                   "Instances of tables, for the document's size; repeatable")
      ->type_name("TABLE=N")
      ->allow_extra_args(false);
  command->add_flag("--notes", arguments->notes, "Print every note with its place instead");
  command->callback([&options, arguments] { report(options, *arguments); });

  command = verb(schema, "tree", "Print a model as a tree", "tree gateway-model.xml --depth 2");
  command->add_option("MODEL", arguments->models, models);
  command
      ->add_option("--below", arguments->prefix,
                   "Only this object, as in InternetGatewayDevice.LANDevice.{i}.")
      ->type_name("PATH");
  command->add_option("--depth", arguments->depth, "Levels to print")
      ->type_name("N")
      ->check(CLI::Range(1, INT32_MAX).description(""));
  command->callback([&options, arguments] { tree(options, *arguments); });

  command = verb(schema, "diff", "Print how two models differ, by path; status 1 when they do",
                 "diff old-model.xml new-model.xml");
  command->add_option("A", arguments->left, "A data-model document")->required();
  command->add_option("B", arguments->right, "Another")->required();
  command->callback([&options, arguments] { diff(options, *arguments); });
}

}  // namespace mibctl
