// Reads and writes the files of a device tree under its root. A write goes
// to a hidden file that is then renamed into place, so a reader sees the old
// contents or the new, never a file cut short.
#pragma once

#include <string>

namespace halvexd::devicesim {

class TreeFiles {
 public:
  explicit TreeFiles(std::string root) : rootDir(std::move(root)) {}

  const std::string& root() const { return rootDir; }
  std::string path(const std::string& relative) const { return rootDir + "/" + relative; }

  // Whole contents of `relative`; false when it cannot be read.
  bool read(const std::string& relative, std::string& text) const;
  bool exists(const std::string& relative) const;
  // Replaces `relative` in one step; throws when it cannot.
  void write(const std::string& relative, const std::string& text) const;
  // Removes the directory `relative` in one step, as the kernel removes a
  // reaped process: it is renamed aside first, then deleted.
  void removeDirectory(const std::string& relative) const;

 private:
  std::string rootDir;
};

}  // namespace halvexd::devicesim
