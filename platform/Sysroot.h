// The one place that maps an absolute device path to the file that is read.
#pragma once

#include <string>

namespace halvexd {

// Sets the directory a host build reads the device tree under; empty means
// the host's own root. The host entry point sets it once at start-up from
// HALVEXD_SYSROOT; nothing else reads that variable. A device build has no
// root and ignores it.
void setSysroot(std::string root);

// The directory set by setSysroot, trailing slashes dropped; empty when none.
const std::string& sysroot();

// Returns `absolutePath` as it is on a device. A host build prefixes it with
// the directory set by setSysroot, so the daemon can run over a fixture
// device tree.
std::string sysrootPath(const char* absolutePath);

}  // namespace halvexd
