#include "stats/ProcessFileParsers.h"

#include <algorithm>
#include <cstring>

#include "stats/TextScan.h"

namespace halvexd {
namespace {

using textscan::nextInt32;

const char* const kBinder = "Binder";
const char* const kUnknownProcessName = "unknown";

bool nextUint32(std::string_view& rest, uint32_t& field) {
  uint64_t bits = 0;
  if (!textscan::nextInteger(rest, false, bits)) return false;
  field = static_cast<uint32_t>(bits);
  return true;
}

bool nextUint64(std::string_view& rest, uint64_t& field) {
  return textscan::nextInteger(rest, false, field);
}

}  // namespace

bool parseProcessStat(std::string_view text, ProcessStat& stat) {
  size_t nameEnd = text.rfind(')');
  std::string_view head = text;
  if (nameEnd == std::string_view::npos || !nextInt32(head, stat.pid)) {
    return false;
  }
  std::string_view rest = text.substr(nameEnd + 1);
  textscan::skipBlanks(rest);
  if (rest.empty()) {
    return false;
  }
  stat.state = rest[0];
  rest.remove_prefix(1);
  return nextInt32(rest, stat.ppid) && nextInt32(rest, stat.pgrp) &&
         nextInt32(rest, stat.session) && nextInt32(rest, stat.ttyNr) &&
         nextInt32(rest, stat.tpgid) && nextUint32(rest, stat.flags) &&
         nextUint32(rest, stat.minflt) && nextUint32(rest, stat.cminflt) &&
         nextUint32(rest, stat.majflt) && nextUint32(rest, stat.cmajflt) &&
         nextUint32(rest, stat.utime) && nextUint32(rest, stat.stime) &&
         nextInt32(rest, stat.cutime) && nextInt32(rest, stat.cstime) &&
         nextInt32(rest, stat.priority) && nextInt32(rest, stat.nice) &&
         nextInt32(rest, stat.numThreads) && nextInt32(rest, stat.itrealvalue) &&
         nextUint64(rest, stat.starttime) && nextUint32(rest, stat.vsize) &&
         nextInt32(rest, stat.rss) && nextUint32(rest, stat.rsslim);
}

bool parseProcessComm(std::string_view line, char (&name)[kProcessNameSize]) {
  if (line.empty() || line.size() > 30) {
    return false;
  }
  // The name is a C string: a zero byte ends it.
  line = line.substr(0, line.find('\0'));
  std::string_view word = textscan::nextWord(line);
  if (word.empty()) {
    return false;
  }
  copyProcessName(std::string(word), name);
  return true;
}

bool isBinderThreadName(const char* name) {
  return std::strstr(name, kBinder) != nullptr;
}

std::string binderProcessName(const std::string* cmdline) {
  if (cmdline == nullptr || cmdline->find(kBinder) != std::string::npos) {
    return kUnknownProcessName;
  }
  std::string name;
  for (char c : *cmdline) {
    if (c != ' ' && c != '\t') name.push_back(c);
  }
  // The end of a long path names the program.
  constexpr size_t kKept = kProcessNameSize - 1;
  if (name.size() > kKept) {
    name.erase(0, name.size() - kKept);
  }
  return name;
}

void copyProcessName(const std::string& source, char (&name)[kProcessNameSize]) {
  size_t length = std::min(source.size(), kProcessNameSize - 1);
  std::memcpy(name, source.data(), length);
  std::memset(name + length, 0, kProcessNameSize - length);
}

bool parseProcessCmdline(std::string_view raw, std::string& cmdline) {
  if (raw.empty()) {
    return false;
  }
  size_t lineEnd = raw.find('\n');
  if (lineEnd != std::string_view::npos) {
    raw = raw.substr(0, lineEnd + 1);
  }
  cmdline.assign(raw.substr(0, raw.find('\0')));
  return true;
}

bool parsePerfinfoPss(std::string_view line, unsigned long& pssKb) {
  constexpr std::string_view kPrefix = "Pss:";
  if (line.substr(0, kPrefix.size()) != kPrefix) {
    return false;
  }
  line.remove_prefix(kPrefix.size());
  uint64_t value = 0;
  if (!textscan::nextUnsigned(line, value)) {
    return false;
  }
  pssKb = value;
  return true;
}

size_t parseKeyedNumbers(std::string_view text, const std::vector<KeyedNumber>& keys) {
  std::vector<bool> found(keys.size(), false);
  size_t count = 0;
  textscan::forEachLine(text, [&](std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    for (size_t i = 0; i < keys.size(); ++i) {
      std::string_view rest = line.substr(colon + 1);
      uint64_t value = 0;
      if (found[i] || line.substr(0, colon) != keys[i].first ||
          !textscan::nextUnsigned(rest, value)) {
        continue;
      }
      *keys[i].second = value;
      found[i] = true;
      ++count;
    }
  });
  return count;
}

}  // namespace halvexd
