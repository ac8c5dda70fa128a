#include "platform/FileSystemStats.h"

#include "platform/Sysroot.h"

namespace halvexd {
namespace {

StatvfsFunction& testStandIn() {
  static StatvfsFunction function;
  return function;
}

}  // namespace

int statvfsOf(const char* devicePath, struct statvfs* out) {
  if (testStandIn()) {
    return testStandIn()(devicePath, out);
  }
  return statvfs(sysrootPath(devicePath).c_str(), out);
}

void setStatvfsForTesting(StatvfsFunction function) {
  testStandIn() = std::move(function);
}

}  // namespace halvexd
