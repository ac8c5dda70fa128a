// The kernel's /proc/perfinfo reply given any contents: a figure is only
// taken from a reply that starts with "Pss:" and then carries that figure's
// digits.
#include <algorithm>
#include <string>

#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string reply(reinterpret_cast<const char*>(data), size);
  unsigned long pss = 12345;
  bool parsed = halvexd::parsePerfinfoPss(reply, pss);
  if (!parsed) {
    check(pss == 12345, "a refused reply changed the figure");
    return 0;
  }
  check(startsWith(reply, "Pss:"), "figure from a reply without \"Pss:\"");
  std::string rest = reply.substr(4);
  rest.erase(0, rest.find_first_not_of(" \t\n\r\v\f"));
  rest.erase(0, std::min(rest.find_first_not_of('0'), rest.size()));
  std::string digits = pss == 0 ? "" : std::to_string(pss);
  check(startsWith(rest, digits), "figure is not the number after \"Pss:\"");
  return 0;
}
