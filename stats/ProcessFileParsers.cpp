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

bool parseCmdlinePiece(std::string_view piece, FirstArgumentTail& tail) {
  // The first line, its newline kept, up to the first zero byte.
  const size_t lineEnd = piece.find('\n');
  std::string_view argument = piece.substr(0, lineEnd == piece.npos ? lineEnd : lineEnd + 1);
  const size_t zero = argument.find('\0');
  argument = argument.substr(0, zero);
  const bool ended = lineEnd != std::string_view::npos || zero != std::string_view::npos;

  // "Binder" may start in an earlier piece and end in this one: the last
  // five bytes before this piece are searched with its first five.
  constexpr size_t kCarried = sizeof("Binder") - 2;
  std::string seam = tail.lastBytes;
  seam.append(argument.substr(0, kCarried));
  if (seam.find(kBinder) != std::string::npos || argument.find(kBinder) != std::string_view::npos) {
    tail.holdsBinder = true;
  }
  tail.lastBytes.append(argument.substr(argument.size() - std::min(argument.size(), kCarried)));
  tail.lastBytes.erase(0, tail.lastBytes.size() - std::min(tail.lastBytes.size(), kCarried));

  // The end of a long path names the program: only the last characters
  // without blanks are kept.
  constexpr size_t kKept = kProcessNameSize - 1;
  std::string newest;
  for (auto c = argument.rbegin(); c != argument.rend() && newest.size() < kKept; ++c) {
    if (*c != ' ' && *c != '\t') newest.push_back(*c);
  }
  tail.kept.append(newest.rbegin(), newest.rend());
  if (tail.kept.size() > kKept) {
    tail.kept.erase(0, tail.kept.size() - kKept);
  }
  return !ended;
}

std::string binderProcessName(const FirstArgumentTail* tail) {
  if (tail == nullptr || tail->holdsBinder) {
    return kUnknownProcessName;
  }
  return tail->kept;
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

bool parseSmapsRollupPss(std::string_view text, unsigned long& pssKb) {
  bool found = false;
  bool whole = false;
  uint64_t value = 0;
  textscan::forEachLine(text, [&](std::string_view line) {
    const bool endsInNewline = line.data() + line.size() < text.data() + text.size();
    if (found || textscan::nextWord(line) != "Pss:") return;
    found = true;
    whole = endsInNewline && textscan::nextUnsigned(line, value) &&
            textscan::nextWord(line) == "kB" && textscan::nextWord(line).empty();
  });
  if (!whole) return false;
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
