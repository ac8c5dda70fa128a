#include "tools/devicesim/LiveMirror.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace halvexd::devicesim {
namespace {

void link(const std::string& target, const std::string& at) {
  unlink(at.c_str());
  if (symlink(target.c_str(), at.c_str()) != 0) throw std::runtime_error("cannot link " + at);
}

}  // namespace

LiveMirror::LiveMirror(const std::string& root, const std::string& config, std::string proc)
    : procDir(root + "/proc"), hostProc(std::move(proc)) {
  namespace fs = std::filesystem;
  fs::create_directories(procDir);
  fs::create_directories(root + "/system/system_ext/etc");
  fs::copy_file(config, root + "/system/system_ext/etc/halvex_config.json",
                fs::copy_options::overwrite_existing);
  link("/sys", root + "/sys");
  link("/", root + "/data");
  refresh();
}

void LiveMirror::refresh() {
  std::set<std::string> present;
  if (DIR* dir = opendir(hostProc.c_str())) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name == "." || name == ".." || name == "perfinfo") continue;
      present.insert(name);
    }
    closedir(dir);
  }
  for (const std::string& name : present) {
    if (linked.count(name) == 0) {
      const std::string at = procDir + "/" + name;
      if (symlink((hostProc + "/" + name).c_str(), at.c_str()) == 0) linked.insert(name);
    }
  }
  for (auto it = linked.begin(); it != linked.end();) {
    if (present.count(*it) == 0) {
      unlink((procDir + "/" + *it).c_str());
      it = linked.erase(it);
    } else {
      ++it;
    }
  }
}

std::string LiveMirror::perfinfoAnswer(const std::string& written) const {
  const long pid = std::atol(written.c_str());
  std::ifstream rollup(hostProc + "/" + std::to_string(pid) + "/smaps_rollup");
  std::string line;
  while (pid > 0 && std::getline(rollup, line)) {
    if (line.rfind("Pss:", 0) == 0) {
      return "Pss: " + std::to_string(std::strtoul(line.c_str() + 4, nullptr, 10)) + " kB\n";
    }
  }
  return "Pss: 0 kB\n";
}

}  // namespace halvexd::devicesim
