#include "tests/support/GoldenRun.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "config/HalvexConfig.h"
#include "daemon/MonitorFactory.h"
#include "monitors/ProcessCpuMonitor.h"
#include "platform/FileSystemStats.h"
#include "platform/LogBuffers.h"

namespace halvexd::testing {
namespace {

namespace fs = std::filesystem;

std::string scriptPath(const std::string& scenario) {
  return std::string(HALVEXD_SOURCE_DIR) + "/tests/golden/" + scenario + "/script";
}

// "\n", "\t", "\\", "\0" and "\xNN" in a script's text.
std::string unescape(const std::string& in) {
  std::string out;
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\' || i + 1 == in.size()) {
      out += in[i];
      continue;
    }
    char c = in[++i];
    if (c == 'n') out += '\n';
    else if (c == 't') out += '\t';
    else if (c == '0') out += '\0';
    else if (c == 'x') out += static_cast<char>(std::stoi(in.substr(i + 1, 2), nullptr, 16)), i += 2;
    else out += c;
  }
  return out;
}

std::string escape(const std::string& in) {
  std::string out;
  for (unsigned char c : in) {
    if (c == '\\') out += "\\\\";
    else if (c == '\n') out += "\\n";
    else if (c == '\t') out += "\\t";
    else if (c < 0x20 || c >= 0x7f) {
      char hex[5];
      snprintf(hex, sizeof(hex), "\\x%02x", c);
      out += hex;
    } else out += static_cast<char>(c);
  }
  return out;
}

void replaceAll(std::string& s, const std::string& from, const std::string& to) {
  for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size())) {
    s.replace(at, from.size(), to);
  }
}

// A line is "[@tick] command arguments"; write and append keep the rest of
// their line, after the path (and the count), as one argument.
std::vector<std::string> split(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  std::string word;
  while (in >> word) {
    words.push_back(word);
    const size_t command = words[0][0] == '@' ? 1 : 0;
    if ((words.size() == command + 2 && words[command] == "write") ||
        (words.size() == command + 3 && words[command] == "append")) {
      std::string rest;
      std::getline(in, rest);
      words.push_back(rest.empty() ? rest : rest.substr(1));
      break;
    }
  }
  return words;
}

const char kPriorities[] = "??VDIWEF";

}  // namespace

bool GoldenRun::needsThread(const std::string& scenario) {
  std::ifstream in(scriptPath(scenario));
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("perfinfo ", 0) == 0) return true;
  }
  return false;
}

GoldenRun::GoldenRun(const std::string& scenario) {
  std::ifstream in(scriptPath(scenario));
  if (!in) throw std::runtime_error("no script for " + scenario);
  std::vector<std::pair<int, std::string>> answers;
  unsigned long sampleInterval = 120;
  long cpus = 4;
  bool optionsGiven = false;
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> words = split(line);
    if (words.empty() || words[0][0] == '#') continue;
    if (words[0][0] == '@') {
      unsigned long at = std::stoul(words[0].substr(1));
      actions.push_back({at, std::vector<std::string>(words.begin() + 1, words.end())});
    } else if (words[0] == "fixture") {
      fs::copy(fixturePath(words.at(1)), device.path(), fs::copy_options::recursive);
      sysroot = std::make_unique<ScopedSysroot>(device.path());
    } else if (words[0] == "ticks") {
      ticks = std::stoul(words.at(1));
    } else if (words[0] == "options") {
      // The command line: any option puts -s (default 120) on every monitor.
      optionsGiven = true;
      for (size_t i = 1; i + 1 < words.size(); i += 2) {
        if (words[i] == "-s") sampleInterval = std::stoul(words[i + 1]);
        if (words[i] == "-t") tickSeconds = std::stoul(words[i + 1]);
      }
    } else if (words[0] == "cpus") {
      cpus = std::stol(words.at(1));
    } else if (words[0] == "perfinfo") {
      answers.emplace_back(std::stoi(words.at(1)), line.substr(line.find(words[1]) + words[1].size() + 1));
    } else {
      apply(words);
    }
  }
  setStatvfsForTesting([this](const std::string& path, struct statvfs* out) {
    auto disk = disks.find(path);
    if (disk == disks.end()) return errno = ENOENT, -1;
    *out = disk->second;
    return 0;
  });
  if (!answers.empty()) {
    perfinfo = std::make_unique<devicesim::PerfinfoServer>(device.path(), [answers](const std::string& pid) {
      for (const auto& [known, reply] : answers) {
        if (pid == std::to_string(known)) return unescape(reply);
      }
      return std::string("Pss: 0 kB\n");
    });
  }
  hostlog::setRecordHookForTesting([this](const LogRecord& r) {
    text += stamp + ' ' + (r.buffer == kMetricsLogBuffer ? "metrics" : "system") + ' ' +
            kPriorities[r.priority & 7] + ' ' + r.tag + ": " + escape(r.message) + '\n';
  });
  HalvexConfig::instance().resetConfig();
  HalvexConfig::instance().loadConfig("/system/system_ext/etc/halvex_config.json");
  configureMonitors(sampleInterval, optionsGiven, monitors, false);
  for (MonitorInterface* monitor : monitors) {
    // The per-process CPU monitor's clock is the script's: tick x tick length.
    if (auto* cpu = dynamic_cast<processcpumonitor::ProcessCpuMonitor*>(monitor)) {
      cpu->setUptimeClockForTesting([this] { return uint64_t{tick} * tickSeconds * 1000; });
      cpu->configuredCpus = cpus;
    }
    monitor->init();
    engine.addMonitor(monitor);
  }
}

GoldenRun::~GoldenRun() {
  hostlog::setRecordHookForTesting(nullptr);
  setStatvfsForTesting(nullptr);
  for (MonitorInterface* monitor : monitors) delete monitor;
  HalvexConfig::instance().resetConfig();
}

void GoldenRun::apply(const std::vector<std::string>& given) {
  std::vector<std::string> words = given;
  char number[8];
  snprintf(number, sizeof(number), "%03lu", cycle % 1000);
  for (std::string& word : words) replaceAll(word, "{cycle}", number);
  const std::string path = device.path() + "/" + words.at(1);
  if (words[0] == "write") {
    device.write(words[1], unescape(words.at(2)));
  } else if (words[0] == "append") {
    std::ofstream file(path, std::ios::app | std::ios::binary);
    const std::string text = unescape(words.at(3));
    for (unsigned long n = std::stoul(words.at(2)); n > 0; --n) file << text;
  } else if (words[0] == "link") {
    fs::remove_all(path);
    fs::create_symlink(words.at(2), path);
  } else if (words[0] == "remove") {
    fs::remove_all(path);
  } else if (words[0] == "copy") {
    // copy FIXTURE-PATH DEVICE-PATH: committed good data back into place.
    fs::remove_all(device.path() + "/" + words.at(2));
    fs::copy(fixturePath(words[1]), device.path() + "/" + words[2], fs::copy_options::recursive);
  } else if (words[0] == "statvfs") {
    // statvfs PATH bsize blocks bfree bavail files ffree favail
    struct statvfs disk {};
    disk.f_bsize = std::stoul(words.at(2));
    disk.f_blocks = std::stoull(words.at(3));
    disk.f_bfree = std::stoull(words.at(4));
    disk.f_bavail = std::stoull(words.at(5));
    disk.f_files = std::stoull(words.at(6));
    disk.f_ffree = std::stoull(words.at(7));
    disk.f_favail = std::stoull(words.at(8));
    disk.f_flag = words.size() > 9 && words[9] == "ro" ? ST_RDONLY : 0;
    disks[words[1]] = disk;
  } else {
    throw std::runtime_error("unknown script command " + words[0]);
  }
}

void GoldenRun::runCycle() {
  for (unsigned long step = 0; step < ticks; ++step, ++tick) {
    for (const Action& action : actions) {
      if (action.tick == step) apply(action.words);
    }
    stamp = std::to_string(tick);
    engine.runTick();
  }
  ++cycle;
}

}  // namespace halvexd::testing
