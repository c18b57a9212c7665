// From the options of the command line to a model and a configuration.
#include <cstdlib>

#include "commands.hh"

namespace mibctl {

namespace {

Error usage(const std::string& text) { return {Status::usage, "mibctl", text}; }

}  // namespace

Model model_of(const Options& options) {
  if (options.models.empty())
    throw usage("name the model: --model FILE, or $MIBCTL_MODEL in the environment");
  Model model = read_model(options.models, options.select);
  if (!options.overlay.empty()) apply_overlay(model, options.overlay);
  choose(model, options.profiles, options.keeps);
  complete(model);
  Lock none;
  assign_ids(model, none);
  return model;
}

std::unique_ptr<Store> store_of(const Options& options) {
  const int named = !options.config.empty() + !options.flash.empty() + !options.image.empty();
  const char* const usual = std::getenv("MIBCTL_CONFIG");
  if (named == 0 && usual) return open_any(usual);
  if (named == 0)
    throw usage(
        "name the configuration: --config FILE, --flash DIR or --image FILE, "
        "or $MIBCTL_CONFIG in the environment");
  if (named > 1) throw usage("name one configuration: --config, --flash or --image");
  if (!options.config.empty()) return open_document(options.config);
  if (!options.flash.empty()) return open_flash(options.flash);
  return open_image(options.image);
}

}  // namespace mibctl
