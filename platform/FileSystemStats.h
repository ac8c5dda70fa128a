// statvfs on a device path, the one seam between the disk monitor and the
// file systems it measures.
#pragma once

#include <sys/statvfs.h>

#include <functional>
#include <string>

namespace halvexd {

// statvfs(2) of `devicePath` (resolved under the sysroot on a host), or of
// the test's stand-in while one is set. 0 on success, -1 on failure.
int statvfsOf(const char* devicePath, struct statvfs* out);

// Replaces the file-system query for tests that need exact block and inode
// figures (full, empty, failing partitions); an empty function restores the
// real call.
using StatvfsFunction = std::function<int(const std::string& devicePath, struct statvfs* out)>;
void setStatvfsForTesting(StatvfsFunction function);

}  // namespace halvexd
