#include "platform/Sysroot.h"

#include <cstdlib>

namespace halvexd {

std::string sysrootPath(const char* absolutePath) {
#if defined(__ANDROID__)
  return absolutePath;
#else
  const char* root = std::getenv("HALVEXD_SYSROOT");
  if (root == nullptr || root[0] == '\0') {
    return absolutePath;
  }
  std::string resolved(root);
  while (!resolved.empty() && resolved.back() == '/') {
    resolved.pop_back();
  }
  if (absolutePath[0] != '/') {
    resolved += '/';
  }
  return resolved + absolutePath;
#endif
}

}  // namespace halvexd
