// /proc/lmk_stats given any contents: the file reader and the pure parser
// agree, only the seeded class names are ever touched, and the system memory
// monitor reports all six classes whatever the file held.
#include <algorithm>
#include <map>
#include <string>

#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

namespace {

std::map<std::string, unsigned long> seeded() {
  return {{"Persistent", 1}, {"Fg", 1}, {"Visible", 1}, {"Perceptible", 1}, {"Backup", 1},
          {"Other", 1}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write("/proc/lmk_stats", data, size);
  // The reader reads at most the first 8 MiB of the file.
  const std::string text(reinterpret_cast<const char*>(data), std::min<size_t>(size, 8 << 20));

  std::map<std::string, unsigned long> fromFile = seeded();
  bool fileUpdated = halvexd::StatUtil::getLmkStats(fromFile);
  std::map<std::string, unsigned long> parsed = seeded();
  bool parserUpdated = halvexd::parseLmkStats(text, parsed);

  check(fileUpdated == parserUpdated, "file reader and parser disagree on success");
  check(fromFile == parsed, "file reader and parser disagree on the counts");
  check(parsed.size() == 6, "a name the caller did not seed was added");
  for (const auto& [name, count] : parsed) {
    check(count == 1 || text.find(name) != std::string::npos,
          "count changed for a class the file does not name: " + name);
  }
  return 0;
}
