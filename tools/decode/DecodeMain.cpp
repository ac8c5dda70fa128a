// halvex-decode: the metric records of a log, one value per line.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "tools/decode/DecodeCommand.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return halvexd::tools::runDecode(args, std::cin, STDIN_FILENO, std::cout, std::cerr);
}
