// The plug-in driven the way the video host drives it: the module loaded,
// its property list read and checked, global set-up and parameter set-up
// done, and the parameters at their declared defaults until values are
// applied.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host.h"
#include "param_options.h"

namespace tarvo::cli {

// An option value as given on the command line: option name, text.
using OptionValue = std::pair<std::string, std::string>;

class EffectSession {
 public:
  // Null with a one-line *error when the module cannot be loaded or is not
  // an effect this host can drive.
  static std::unique_ptr<EffectSession> Open(const std::string& modulePath, std::string* error);
  ~EffectSession();  // global set-down

  host::Host& Host() { return *host_; }
  host::Module& Module() { return *module_; }
  const host::PropertyInfo& Info() const { return info_; }
  const std::vector<ParamOption>& Options() const { return options_; }
  const ParamOption* FindOption(const std::string& name) const;

  // Stores every value; false with *error at the first one refused.
  bool Apply(const std::vector<OptionValue>& values, std::string* error);

  enum class Outcome { kOk, kEffectError, kHostError };
  // Renders input into *output (allocated here at the input's size). With
  // kEffectError, *message is what the plug-in asked the host to show.
  Outcome Render(const host::Image& input, host::Image* output, std::string* message);
  // Seconds the last Render spent in the plug-in's render command alone.
  double LastRenderSeconds() const { return lastRenderSeconds_; }

 private:
  EffectSession() = default;
  std::unique_ptr<host::Module> module_;
  std::unique_ptr<host::Host> host_;
  host::PropertyInfo info_;
  std::vector<ParamOption> options_;
  double lastRenderSeconds_ = 0;
};

}  // namespace tarvo::cli
