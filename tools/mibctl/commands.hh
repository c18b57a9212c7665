// The command line: what all verbs share, and the families of verbs.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "error.hh"
#include "model.hh"
#include "store.hh"

namespace CLI {
class App;
}

namespace mibctl {

// Options that may stand before or behind any verb.
struct Options {
  std::vector<std::string> models;           // --model FILE..., $MIBCTL_MODEL
  std::string select;                        // --select NAME: the model, where a file has several
  std::string overlay;                       // --overlay FILE, $MIBCTL_OVERLAY
  std::vector<std::string> profiles, keeps;  // --profile NAME:N, --keep GLOB
  std::string config, flash, image;  // --config FILE, --flash DIR, --image FILE: one of them
  std::string factory;               // --factory FILE: the factory default document
  bool json = false;                 // --json
  Status status = Status::done;      // what the program ends with unless an Error is thrown
};

// The model that the options name, completed and with its subset chosen, with unique ids. Throws a
// usage Error when none is named.
Model model_of(const Options& options);
// The configuration that the options name. Throws a usage Error when none or more than one is.
std::unique_ptr<Store> store_of(const Options& options);

// Prints what of a stored document would be lost or is worth knowing. Whether anything would be.
bool print_check(const Model& model, Store& store, bool json);

// Each adds its verbs with help and examples; their callbacks do the work and throw Error.
void add_schema_commands(CLI::App& app, Options& options);  // schema compile|report|tree|diff
void add_config_commands(CLI::App& app,
                         Options& options);               // show get set add del list attr diff ...
void add_check_command(CLI::App& app, Options& options);  // check
void add_image_commands(CLI::App& app, Options& options);  // image info|pack|unpack|...
void add_shell_command(CLI::App& app, Options& options);   // shell

}  // namespace mibctl
