#include "tools/devicesim/TreeFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace halvexd::devicesim {

bool TreeFiles::read(const std::string& relative, std::string& text) const {
  std::ifstream in(path(relative), std::ios::binary);
  if (!in) return false;
  std::ostringstream all;
  all << in.rdbuf();
  text = all.str();
  return true;
}

bool TreeFiles::exists(const std::string& relative) const {
  return access(path(relative).c_str(), F_OK) == 0;
}

void TreeFiles::write(const std::string& relative, const std::string& text) const {
  const std::string target = path(relative);
  const size_t slash = target.rfind('/');
  const std::string aside = target.substr(0, slash + 1) + ".devicesim.next";
  int fd = open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot write " + aside);
  bool whole = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  if (!whole || std::rename(aside.c_str(), target.c_str()) != 0) {
    throw std::runtime_error("cannot replace " + target);
  }
}

void TreeFiles::removeDirectory(const std::string& relative) const {
  const std::string aside = path(".devicesim.gone");
  std::error_code ignored;
  std::filesystem::remove_all(aside, ignored);
  if (std::rename(path(relative).c_str(), aside.c_str()) == 0) {
    std::filesystem::remove_all(aside, ignored);
  }
}

}  // namespace halvexd::devicesim
