// This machine as a device: a sysroot whose /proc holds one link per entry
// of the machine's /proc, kept in step every second, beside the /proc/perfinfo
// stand-in, which the real /proc cannot hold. /sys is a link to /sys, /data a
// link to / (the partition a host keeps its data on), and /system a directory
// of the sysroot holding the configuration (so it lies on the partition of
// the sysroot itself).
#pragma once

#include <set>
#include <string>

namespace halvexd::devicesim {

class LiveMirror {
 public:
  // Builds the sysroot at `root` with `config` as its configuration file.
  LiveMirror(const std::string& root, const std::string& config, std::string hostProc = "/proc");

  // Adds a link for every new entry of the host's /proc and removes the
  // links of entries that are gone.
  void refresh();

  // The reply of /proc/perfinfo for a written pid: the "Pss:" line of the
  // process's smaps_rollup, 0 kB when there is none (a kernel thread, a
  // process that has ended).
  std::string perfinfoAnswer(const std::string& written) const;

 private:
  std::string procDir;
  std::string hostProc;
  std::set<std::string> linked;
};

}  // namespace halvexd::devicesim
