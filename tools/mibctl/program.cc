#include "program.hh"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "commands.hh"
#include "text.hh"

namespace mibctl {

namespace {

constexpr char about[] =
    "Works on data models, stored configurations and partition images of a home gateway.";

constexpr char footer[] =
    "Examples:\n"
    "  mibctl schema compile gateway-model.xml --overlay gateway.toml --lock gateway.lock -o "
    "build\n"
    "  mibctl --model gateway-model.xml --flash dump show InternetGatewayDevice.Time.\n"
    "  mibctl image info nvram.bin\n"
    "\n"
    "A configuration is a document (--config), a folder with the partition images or devices\n"
    "\"nvram\" and \"nvrambak\" (--flash), or one image (--image). The options of a model and a\n"
    "configuration may stand before or behind the verb.\n"
    "\n"
    "Exit status: 0 done; 1 refused or not found; 2 the command line makes no sense; 3 a file or\n"
    "device could not be read or written, or holds no configuration.";

void add_options(CLI::App& app, Options& options) {
  const char* const model = "Model";
  app.add_option("--model", options.models,
                 "Published data-model document; again for each service below it")
      ->type_name("FILE")
      ->envname("MIBCTL_MODEL")
      ->group(model)
      ->allow_extra_args(false);
  app.add_option("--select", options.select, "The model to take, where a document has several")
      ->type_name("NAME")
      ->group(model);
  app.add_option("--overlay", options.overlay, "The vendor's side of the model (TOML)")
      ->type_name("FILE")
      ->envname("MIBCTL_OVERLAY")
      ->group(model);
  app.add_option("--profile", options.profiles, "Only this profile of the model; repeatable")
      ->type_name("NAME:N")
      ->group(model)
      ->allow_extra_args(false);
  app.add_option("--keep", options.keeps,
                 "Only what matches; repeatable. * stops at dots, ** does not")
      ->type_name("GLOB")
      ->group(model)
      ->allow_extra_args(false);

  const char* const configuration = "Configuration";
  app.add_option("--config", options.config, "A configuration document")
      ->type_name("FILE")

      ->group(configuration);
  app.add_option("--flash", options.flash,
                 "A folder with \"nvram\" and \"nvrambak\"; /dev on a device")
      ->type_name("DIR")

      ->group(configuration);
  app.add_option("--image", options.image, "One partition image")
      ->type_name("FILE")
      ->group(configuration);
  app.add_option("--factory", options.factory, "The factory default document")
      ->type_name("FILE")
      ->envname("MIBCTL_FACTORY")
      ->group(configuration);
  app.add_flag("--json", options.json, "Print JSON, for programs");
}

// CLI11 tells what is missing and not what it did not know, a mistyped verb for instance.
std::string reason(const CLI::App& app, const CLI::ParseError& error) {
  const std::string text = error.what();
  if (!dynamic_cast<const CLI::RequiredError*>(&error)) return text;
  std::vector<std::string> unknown = app.remaining(true);
  std::erase(unknown, "--");
  if (!unknown.empty() && unknown.front().starts_with('-'))
    return unknown.front() + ": no such option";
  const std::string first = unknown.empty() ? "" : unknown.front();
  if (text == "A subcommand is required")
    return first.empty() ? "a verb is missing" : first + ": no such verb";
  return first.empty() ? text : text + "; " + first + " is not expected";
}

// CLI11's help ends in status 0; everything else it finds wrong is a usage error.
int report(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(error);
  std::fprintf(stderr, "mibctl: %s (try mibctl --help)\n", reason(app, error).c_str());
  return static_cast<int>(Status::usage);
}

}  // namespace

int run(int argc, const char* const* argv) {
  setenv("TZ", "UTC0", 1);  // the library reads dates as local time and prints them as UTC
  CLI::App app(about, "mibctl");
  Options options;
  app.footer(footer);
  app.set_version_flag("--version", "mibctl " MIBCTL_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  add_options(app, options);
  add_config_commands(app, options);
  add_check_command(app, options);
  add_shell_command(app, options);
  add_image_commands(app, options);
  add_schema_commands(app, options);
  try {
    app.parse(argc, argv);
    return static_cast<int>(options.status);
  } catch (const CLI::ParseError& error) {
    return report(app, error);
  } catch (const Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return static_cast<int>(error.status);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "mibctl: out of memory\n");
    return static_cast<int>(Status::storage);
  }
}

}  // namespace mibctl
