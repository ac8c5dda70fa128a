#include "platform/Sysroot.h"

#include <utility>

namespace halvexd {
namespace {

std::string& heldRoot() {
  static std::string root;
  return root;
}

}  // namespace

void setSysroot(std::string root) {
  while (!root.empty() && root.back() == '/') {
    root.pop_back();
  }
  heldRoot() = std::move(root);
}

const std::string& sysroot() {
  return heldRoot();
}

std::string sysrootPath(const char* absolutePath) {
#if defined(__ANDROID__)
  return absolutePath;
#else
  const std::string& root = heldRoot();
  if (root.empty()) {
    return absolutePath;
  }
  std::string resolved(root);
  if (absolutePath[0] != '/') {
    resolved += '/';
  }
  return resolved + absolutePath;
#endif
}

}  // namespace halvexd
