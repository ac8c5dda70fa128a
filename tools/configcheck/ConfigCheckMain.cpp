// halvex-config-check: which metric records a configuration file makes the
// daemon write, and why not where it writes none.
#include <iostream>
#include <string>
#include <vector>

#include "tools/configcheck/ConfigCheckCommand.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return halvexd::tools::runConfigCheck(args, std::cout, std::cerr);
}
