// halvex-config-check: which metric records a configuration file makes the
// daemon write, and why not where it writes none.
#include <iostream>
#include <string>

#include "tools/ConfigChecker.h"
#include "tools/ConfigFileLoader.h"

namespace {

const char* const kUsage =
    "usage: halvex-config-check CONFIG\n"
    "Loads CONFIG with the daemon's own loader and prints, for every name the daemon\n"
    "publishes under and each monitor that publishes it, which records it will write\n"
    "(plain, structured single-value, structured multi-field, structured system-health)\n"
    "with their group and schema, or why not (no configuration record, plain interface\n"
    "inactive or, for a system-health name, active; structured service disabled; Vedrix\n"
    "interface inactive; no descriptor matching), and warnings where a field the monitor\n"
    "sends has no descriptor or the record's body ends in a comma.\n"
    "Exit status: 0 when every configured name writes records, 1 when one writes nothing\n"
    "(each is named), 2 bad usage or a file the daemon would not load.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string(argv[1]) == "-h" || std::string(argv[1]) == "--help")) {
    std::cout << kUsage;
    return 0;
  }
  if (argc != 2 || argv[1][0] == '\0' || (argv[1][0] == '-' && argv[1][1] != '\0')) {
    std::cerr << "halvex-config-check: one configuration file expected\n" << kUsage;
    return 2;
  }
  std::string error;
  if (!halvexd::tools::ConfigFileLoader::load(argv[1], error)) {
    std::cerr << "halvex-config-check: " << error << "\n";
    return 2;
  }
  int status = halvexd::tools::ConfigChecker::print(halvexd::tools::ConfigChecker::check(),
                                                    std::cout);
  std::cout.flush();
  return status;
}
