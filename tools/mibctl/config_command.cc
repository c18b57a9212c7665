// The verbs that read and edit a configuration.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>

#include "commands.hh"
#include "complete.hh"
#include "image.hh"
#include "session.hh"
#include "show.hh"
#include "stored.hh"
#include "text.hh"

namespace mibctl {

namespace {

constexpr uint64_t kMaxBatch = 16 << 20;

// What the verbs take besides the common options.
struct Arguments {
  std::string prefix, name, left, right, file;
  std::vector<std::string> names, settings;
  uint32_t number = 0;
  bool changed = false, internal = false, force = false;
};

// A value by its full name.
using Lookup = std::function<std::string(const std::string& name)>;

void print_values(const Arguments& arguments, bool json, const Lookup& value_of) {
  nlohmann::ordered_json values = nlohmann::ordered_json::object();
  for (const std::string& name : arguments.names) {
    const std::string value = value_of(name);
    if (json)
      values[name] = value;
    else if (arguments.names.size() == 1)
      std::printf("%s\n", value.c_str());
    else
      std::printf("%s=%s\n", name.c_str(), quoted_value(value).c_str());
  }
  if (json)
    std::printf("%s\n",
                values.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// Without a model only what is stored is known.
void get(const Options& options, const Arguments& arguments) {
  if (options.models.empty()) {
    const std::unique_ptr<Store> store = store_of(options);
    const std::string document = store->load();
    return print_values(arguments, options.json, [&](const std::string& name) {
      return stored_value(store->name(), document, name);
    });
  }
  const Session session(options);
  print_values(arguments, options.json, [&](const std::string& name) {
    return session.tree().value(session.tree().find(name));
  });
}

void set_values(Session& session, const Arguments& arguments) {
  const uint32_t flags = arguments.internal ? 0 : QMIBTREE_WRITE_APPLY;
  for (const std::string& setting : arguments.settings) {
    const size_t equals = setting.find('=');
    if (equals == std::string::npos)
      throw Error(Status::usage, setting, "not an assignment", "NAME=VALUE");
    session.set(setting.substr(0, equals), setting.substr(equals + 1), flags);
  }
  session.save(arguments.force);
}

void list_instances(const Session& session, const std::string& name, bool json) {
  const qmibtree_node* const table = session.tree().find(name);
  if (!is_template(table)) throw refused(name, "not a table", "the object of an {i} in the model");
  nlohmann::ordered_json instances = nlohmann::ordered_json::array();
  for (const qmibtree_node* child = table->first_child; child; child = child->next) {
    if (json)
      instances.push_back(child->fullName);
    else
      std::printf("%s\n", child->fullName);
  }
  if (json) std::printf("%s\n", instances.dump(2).c_str());
}

void attributes(Session& session, const Arguments& arguments, bool json) {
  for (const std::string& setting : arguments.settings)
    session.set_attribute(arguments.name, setting);
  if (!arguments.settings.empty()) return session.save(arguments.force);
  const Attributes words = attributes_of(session.tree().find(arguments.name));
  if (json) {
    const nlohmann::ordered_json record = {{"notify", words.notify}, {"access", words.access}};
    std::printf("%s\n", record.dump(2).c_str());
  } else {
    std::printf("notify=%s access=%s\n", words.notify.c_str(), words.access.c_str());
  }
}

std::unique_ptr<Tree> tree_of(const Model& model, const std::string& path) {
  const std::string document = open_any(path)->load();
  auto tree = std::make_unique<Tree>(model);
  if (!tree->load(document))
    throw Error(Status::storage, path, "does not load", document_problem(document));
  return tree;
}

void diff(Options& options, const Arguments& arguments) {
  const Model model = model_of(options);
  const auto left = tree_of(model, arguments.left);
  const auto right = tree_of(model, arguments.right);
  if (show_differences(*left, *right, options.json, stdout)) options.status = Status::refused;
}

void replay_lines(Session& session, const std::string& name, std::string_view text) {
  Place place{name};
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    ++place.line;
    session.replay(line, place);
  }
}

void batch(Session& session, const Arguments& arguments) {
  const std::string text = read_file(arguments.file, kMaxBatch);
  replay_lines(session, arguments.file == "-" ? "standard input" : arguments.file, text);
  session.save(arguments.force);
}

void export_document(const Session& session, const std::string& path) {
  const std::string document = session.tree().document();
  if (path.empty() || path == "-")
    std::fwrite(document.data(), 1, document.size(), stdout);
  else
    write_file(path, document);
}

void import_document(const Options& options, const std::string& path, bool force) {
  Session session(options, Session::Start::empty);
  session.import(read_file(path, kMaxDocumentFile), path, force);
  session.save(force);
}

void reset(const Options& options, bool force) {
  if (options.factory.empty())
    throw Error(Status::usage, "reset", "name the factory default document: --factory FILE");
  import_document(options, options.factory, force);
}

// For completion in bash: of the configuration, or of the model alone where none is named.
void print_names(const Options& options, const std::string& prefix) {
  const bool has_configuration = !options.config.empty() || !options.flash.empty() ||
                                 !options.image.empty() || std::getenv("MIBCTL_CONFIG");
  const Model model = model_of(options);
  Tree tree(model);
  if (has_configuration) tree.load(store_of(options)->load());
  for (const std::string& name : complete_name(tree, prefix)) std::printf("%s\n", name.c_str());
}

// A verb with its help, and an example below it.
CLI::App* verb(CLI::App& app, const char* name, const char* help, const char* example) {
  CLI::App* const command = app.add_subcommand(name, help);
  command->group("Configurations");
  command->footer(std::string("Example:\n  mibctl ") + example);
  return command;
}

void add_force(CLI::App* command, const std::shared_ptr<Arguments>& arguments) {
  command->add_flag("--force", arguments->force,
                    "Store all the same where something stored before would be dropped");
}

}  // namespace

void add_config_commands(CLI::App& app, Options& options) {
  const auto arguments = std::make_shared<Arguments>();

  CLI::App* command =
      verb(app, "show", "Print parameters, instances and attributes, as lines that batch replays",
           "--flash dump show InternetGatewayDevice.Time.");
  command->add_option("PREFIX", arguments->prefix,
                      "What full names begin with; everything without it");
  command->add_flag("--changed", arguments->changed, "Only what differs from the model's defaults");
  command->callback([&options, arguments] {
    const Session session(options);
    show(session.tree(), arguments->prefix, {arguments->changed, options.json}, stdout);
  });

  command = verb(
      app, "get",
      "Print values: a bare one, or NAME=VALUE lines of several. Without a model: what is stored",
      "--image nvram.bin get InternetGatewayDevice.Time.NTPServer1");
  command->add_option("NAME", arguments->names, "Full names")->required();
  command->callback([&options, arguments] { get(options, *arguments); });

  command = verb(app, "set", "Write values, all or none, and store the configuration",
                 "--config conf.xml set InternetGatewayDevice.Time.Enable=true");
  command->add_option("NAME=VALUE", arguments->settings, "Assignments")->required();
  command->add_flag("--internal", arguments->internal,
                    "Write as the gateway itself: read-only parameters too");
  add_force(command, arguments);
  command->callback([&options, arguments] {
    Session session(options);
    set_values(session, *arguments);
  });

  command = verb(app, "add", "Add an instance to a table and print its full name",
                 "--config conf.xml add InternetGatewayDevice.Layer3Forwarding.Forwarding.");
  command->add_option("OBJECT", arguments->name, "The table's full name")->required();
  command
      ->add_option("--number", arguments->number,
                   "The instance number; it must be above the highest")
      ->check(CLI::Range(1, 999));
  add_force(command, arguments);
  command->callback([&options, arguments] {
    Session session(options);
    const std::string name = session.add(arguments->name, arguments->number);
    session.save(arguments->force);
    std::printf("%s\n", name.c_str());
  });

  command = verb(app, "del", "Delete instances with all below them",
                 "--config conf.xml del InternetGatewayDevice.Layer3Forwarding.Forwarding.2.");
  command->add_option("INSTANCE", arguments->names, "Full names of instances")->required();
  add_force(command, arguments);
  command->callback([&options, arguments] {
    Session session(options);
    for (const std::string& name : arguments->names) session.del(name);
    session.save(arguments->force);
  });

  command = verb(app, "list", "Print the instances of a table",
                 "--config conf.xml list InternetGatewayDevice.LANDevice.");
  command->add_option("OBJECT", arguments->name, "The table's full name")->required();
  command->callback(
      [&options, arguments] { list_instances(Session(options), arguments->name, options.json); });

  command = verb(
      app, "attr", "Print or set a parameter's notification and access attributes",
      "--config conf.xml attr InternetGatewayDevice.Time.Enable notify=active access=subscriber");
  command->add_option("NAME", arguments->name, "The full name")->required();
  command->add_option("SETTING", arguments->settings,
                      "notify=off|passive|active, access=subscriber|none");
  add_force(command, arguments);
  command->callback([&options, arguments] {
    Session session(options);
    attributes(session, *arguments, options.json);
  });

  command =
      verb(app, "diff", "Print how two configurations differ, by full name; status 1 when they do",
           "--model gateway-model.xml diff before.bin after.xml");
  command
      ->add_option("A", arguments->left, "A document, an image, or a folder with a pair of images")
      ->required();
  command->add_option("B", arguments->right, "Another")->required();
  command->callback([&options, arguments] { diff(options, *arguments); });

  command = app.add_subcommand("names", "Print the full names that a prefix may become")->group("");
  command->add_option("PREFIX", arguments->prefix);
  command->callback([&options, arguments] { print_names(options, arguments->prefix); });

  command =
      verb(app, "export", "Write the configuration as a document", "--flash dump export conf.xml");
  command->add_option("FILE", arguments->file, "Where to; standard output without it");
  command->callback([&options, arguments] { export_document(Session(options), arguments->file); });

  command = verb(app, "import", "Replace the configuration by a document",
                 "--flash dump import conf.xml");
  command->add_option("FILE", arguments->file, "The document; - for standard input")->required();
  command->add_flag("--force", arguments->force,
                    "Import what there is where something in it would be lost");
  command->callback(
      [&options, arguments] { import_document(options, arguments->file, arguments->force); });

  command = verb(app, "reset", "Go back to the factory default document",
                 "--flash dump --factory default-conf.xml reset");
  command->add_flag("--force", arguments->force,
                    "Import what there is where something in it would be lost");
  command->callback([&options, arguments] { reset(options, arguments->force); });

  command = verb(app, "batch",
                 "Apply lines as show prints them, all or none, and store the configuration",
                 "--config conf.xml batch changes.txt");
  command
      ->add_option("FILE", arguments->file,
                   "The lines; - for standard input. Also: set NAME=VALUE, add OBJECT,\n"
                   "del INSTANCE, attr NAME SETTING...; # begins a comment")
      ->required();
  add_force(command, arguments);
  command->callback([&options, arguments] {
    Session session(options);
    batch(session, *arguments);
  });
}

}  // namespace mibctl
