// Loads a configuration file, named as it is on this machine, into the
// process-wide configuration with the daemon's own parser, so the tools read
// it exactly as the daemon would. Unlike the daemon's start-up it does not
// choose between the device's system and override paths.
#pragma once

#include <string>

namespace halvexd::tools {

class ConfigFileLoader {
 public:
  // True when the file was read and its model filled. False with `error`
  // set when the file cannot be read, is larger than the daemon accepts, is
  // not one valid JSON value, or lacks "MonitorConfig" or "VedrixConfig";
  // the model then holds what the daemon would run with: what its loader
  // stored before the failure (the monitor records when only "VedrixConfig"
  // is missing), nothing otherwise. `error` says which of the two.
  static bool load(const std::string& path, std::string& error);
};

}  // namespace halvexd::tools
