// halvex-config-check's command: its argument, its report and its exit
// status, apart from the process so that tests can run it whole.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace halvexd::tools {

// Runs halvex-config-check with `args` (without the program name). Returns
// the exit status the usage text gives. Leaves the process-wide
// configuration as the file filled it.
int runConfigCheck(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace halvexd::tools
