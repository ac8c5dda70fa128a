// /proc/<pid>/comm and cmdline given any contents: the name the per-process
// monitors use as a metric name is a C string of at most 31 characters, is
// what the comm parser gives unless it names a binder thread, and otherwise
// comes from the command line.
#include <cstring>

#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd::fuzz;

namespace {

constexpr int kPid = 777;
constexpr size_t kNameSize = halvexd::kProcessNameSize;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ByteReader in(data, size);
  const ScratchDevice& device = ScratchDevice::instance();
  std::string comm = in.text(40);
  if (in.flag()) comm = "Binder:" + comm;  // a binder thread, more often than chance gives
  bool haveCmdline = in.flag();
  std::string cmdline = in.rest();
  device.write("/proc/777/comm", comm);
  if (haveCmdline) device.write("/proc/777/cmdline", cmdline); else device.remove("/proc/777/cmdline");

  char name[kNameSize];
  std::memset(name, 'x', sizeof(name));
  bool read = halvexd::StatUtil::getProcessName(kPid, name);

  // The reader reads one line of comm, at most 31 bytes.
  std::string firstLine = comm.substr(0, comm.find('\n') == std::string::npos
                                             ? std::string::npos
                                             : comm.find('\n') + 1);
  firstLine = firstLine.substr(0, 31);
  char parsed[kNameSize] = {};
  bool parsedOk = halvexd::parseProcessComm(firstLine, parsed);
  check(read == parsedOk, "file reader and parser disagree on success");
  if (!read) {
    check(name[0] == 'x', "refused name was written");
    return 0;
  }
  check(std::memchr(name, '\0', sizeof(name)) != nullptr, "name is not terminated");
  check(std::strlen(name) <= kNameSize - 1, "name too long");
  if (std::strstr(parsed, "Binder") == nullptr) {
    check(std::strcmp(name, parsed) == 0, "plain name differs from the parsed comm");
  } else {
    std::string first;
    bool cmdlineOk = haveCmdline && halvexd::StatUtil::getProcessCmdline(kPid, first);
    std::string expected = halvexd::binderProcessName(cmdlineOk ? &first : nullptr);
    check(expected.size() <= kNameSize - 1, "binder substitute too long");
    check(std::strncmp(name, expected.c_str(), kNameSize) == 0, "binder thread not renamed");
  }
  return 0;
}
