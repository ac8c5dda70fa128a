// halvex-decode's command: its options, its input and its exit status, apart
// from the process so that tests can run it whole.
#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace halvexd::tools {

// Runs halvex-decode with `args` (without the program name), reading
// `standardInput` (whose descriptor is `standardInputFd`) when no log file
// is named. Returns the exit status the usage text gives.
int runDecode(const std::vector<std::string>& args, std::istream& standardInput,
              int standardInputFd, std::ostream& out, std::ostream& err);

}  // namespace halvexd::tools
