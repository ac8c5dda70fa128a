// /proc/<pid>/cmdline given any contents: the first argument comes back as
// the pure parser reads the first page of the file, holds no zero byte, and
// never reaches past that page.
#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write("/proc/31337/cmdline", data, size);
  const size_t page = halvexd::kMaxCmdlineBytes;
  const std::string head(reinterpret_cast<const char*>(data), std::min(size, page));

  std::string fromFile = "untouched";
  bool read = halvexd::StatUtil::getProcessCmdline(31337, fromFile);
  std::string parsed;
  bool parsedOk = halvexd::parseProcessCmdline(head, parsed);
  check(read == parsedOk, "file reader and parser disagree on success");
  check(read == (size != 0), "an empty command line reads, or a non-empty one does not");
  if (read) {
    check(fromFile == parsed, "file reader and parser disagree");
    check(fromFile.find('\0') == std::string::npos, "first argument holds a zero byte");
    check(fromFile.size() <= page, "first argument longer than the page read");
    check(head.compare(0, fromFile.size(), fromFile) == 0, "first argument is not a prefix");
  }
  return 0;
}
