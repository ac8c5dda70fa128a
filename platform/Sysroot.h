// The one place that maps an absolute device path to the file that is read.
#pragma once

#include <string>

namespace halvexd {

// Returns `absolutePath` as it is on a device. A host build prefixes it with
// the directory named by HALVEXD_SYSROOT when that variable is set and not
// empty, so the daemon can run over a fixture device tree. The variable is
// read on every call, so a test may point it at another tree between calls.
std::string sysrootPath(const char* absolutePath);

}  // namespace halvexd
