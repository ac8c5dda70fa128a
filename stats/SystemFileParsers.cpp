#include "stats/SystemFileParsers.h"

#include <cstdio>

#include "stats/TextScan.h"

namespace halvexd {
namespace {

using textscan::forEachLine;
using textscan::nextUnsigned;
using textscan::nextWord;

struct MeminfoKey {
  std::string_view name;  // compared once per line of a 50-line file: no strlen
  uint64_t SysMeminfoKb::*field;
};

constexpr MeminfoKey kMeminfoKeys[] = {
    {"MemTotal:", &SysMeminfoKb::memTotal},
    {"MemFree:", &SysMeminfoKb::memFree},
    {"MemAvailable:", &SysMeminfoKb::memAvailable},
    {"Buffers:", &SysMeminfoKb::buffers},
    {"Cached:", &SysMeminfoKb::cached},
    {"Active(anon):", &SysMeminfoKb::activeAnon},
    {"Inactive(anon):", &SysMeminfoKb::inactiveAnon},
    {"Active(file):", &SysMeminfoKb::activeFile},
    {"Inactive(file):", &SysMeminfoKb::inactiveFile},
    {"SwapTotal:", &SysMeminfoKb::swapTotal},
    {"SwapFree:", &SysMeminfoKb::swapFree},
    {"Shmem:", &SysMeminfoKb::shmem},
    {"SUnreclaim:", &SysMeminfoKb::sUnreclaim},
    {"KernelStack:", &SysMeminfoKb::kernelStack},
    {"PageTables:", &SysMeminfoKb::pageTables},
};

static_assert(sizeof(unsigned long) == sizeof(uint64_t), "counters are 64-bit on this target");

void applyMeminfoLine(std::string_view line, SysMeminfoKb& out) {
  // Names are compared whole, so a name longer than every key (or one that
  // merely starts like a key) never matches.
  std::string_view name = nextWord(line);
  for (const MeminfoKey& key : kMeminfoKeys) {
    if (name == key.name) {
      uint64_t value = 0;
      if (nextUnsigned(line, value)) {
        out.*key.field = value;
      }
      return;
    }
  }
}

bool applyLmkLine(std::string_view line, std::map<std::string, unsigned long>& stats) {
  std::string_view word = nextWord(line);
  if (word.empty() || word.size() > kMaxLmkNameLength) {
    return false;
  }
  // Every name ends with a colon, which is dropped.
  std::string name(word.substr(0, word.size() - 1));
  auto entry = stats.find(name);
  if (entry == stats.end()) {
    return false;
  }
  uint64_t value = 0;
  if (!nextUnsigned(line, value)) {
    value = 0;
  }
  entry->second = value;
  return true;
}

}  // namespace

void parseMeminfo(std::string_view text, SysMeminfoKb& out) {
  forEachLine(text, [&out](std::string_view line) { applyMeminfoLine(line, out); });
}

bool parseZramMmStat(std::string_view text, unsigned long& usedBytes) {
  // orig_data_size compr_data_size mem_used_total mem_limit mem_used_max ...;
  // kernels differ in how many fields follow, only the third is read.
  textscan::ScannedInteger skipped;
  uint64_t value = 0;
  bool parsed = textscan::scanInteger(text, true, skipped) &&
                textscan::scanInteger(text, true, skipped) && nextUnsigned(text, value);
  usedBytes = parsed ? value : 0;
  return parsed;
}

bool parseFirstUnsigned(std::string_view text, unsigned long& value) {
  uint64_t parsed = 0;
  bool ok = nextUnsigned(text, parsed);
  value = ok ? parsed : 0;
  return ok;
}

bool parseLmkStats(std::string_view text, std::map<std::string, unsigned long>& stats) {
  bool updated = false;
  forEachLine(text, [&](std::string_view line) { updated = applyLmkLine(line, stats) || updated; });
  return updated;
}

int parseUptime(std::string_view line) {
  // Read as a C string: a zero byte ends the line.
  const std::string text(line);
  float uptime = 0;
  float idle = 0;
  if (std::sscanf(text.c_str(), "%f %f", &uptime, &idle) != 2) {
    uptime = 0;
  }
  // The float-to-int conversion is undefined beyond the int range; a garbled
  // file must not turn into undefined behaviour, so such values count as
  // unreadable.
  if (!(uptime > -2147483648.0f && uptime < 2147483648.0f)) {
    return 0;
  }
  return static_cast<int>(uptime);
}

std::vector<unsigned long> parseCpuTimes(std::string_view text) {
  std::vector<unsigned long> times;
  // Passes over "cpu" and one blank (at most five characters, the blank
  // included), whatever they are.
  size_t skipped = 0;
  while (skipped < 5 && skipped < text.size()) {
    if (text[skipped++] == ' ') break;
  }
  text.remove_prefix(skipped);
  textscan::ScannedInteger number;
  while (times.size() < kMaxCpuTimeCounters && textscan::scanInteger(text, true, number) &&
         !number.overflow) {
    times.push_back(number.negative ? 0 - number.magnitude : number.magnitude);
  }
  return times;
}

namespace {

// "<key>=<digits>.<two digits>" as hundredths, at most 100.00.
bool parsePressureAverage(std::string_view word, std::string_view key, uint32_t& hundredths) {
  if (word.substr(0, key.size()) != key) return false;
  word.remove_prefix(key.size());
  const size_t point = word.find('.');
  if (point == std::string_view::npos || point == 0 || word.size() != point + 3) return false;
  std::string_view whole = word.substr(0, point);
  std::string_view fraction = word.substr(point + 1);
  uint64_t units = 0;
  uint64_t cents = 0;
  if (!textscan::nextUnsigned(whole, units) || !whole.empty() ||
      !textscan::nextUnsigned(fraction, cents) || !fraction.empty()) {
    return false;
  }
  if (units > 100 || units * 100 + cents > 10000) return false;
  hundredths = static_cast<uint32_t>(units * 100 + cents);
  return true;
}

bool parsePressureLine(std::string_view rest, PressureLine& line) {
  uint64_t total = 0;
  if (!parsePressureAverage(textscan::nextWord(rest), "avg10=", line.avg10) ||
      !parsePressureAverage(textscan::nextWord(rest), "avg60=", line.avg60) ||
      !parsePressureAverage(textscan::nextWord(rest), "avg300=", line.avg300)) {
    return false;
  }
  std::string_view totalWord = textscan::nextWord(rest);
  constexpr std::string_view kTotal = "total=";
  if (totalWord.substr(0, kTotal.size()) != kTotal) return false;
  totalWord.remove_prefix(kTotal.size());
  if (!textscan::nextUnsigned(totalWord, total) || !totalWord.empty() ||
      !textscan::nextWord(rest).empty()) {
    return false;
  }
  line.totalUs = total;
  line.present = true;
  return true;
}

}  // namespace

bool parsePressure(std::string_view text, PressureStall& out) {
  out = PressureStall{};
  bool ok = true;
  textscan::forEachLine(text, [&](std::string_view line) {
    const bool endsInNewline = line.data() + line.size() < text.data() + text.size();
    std::string_view kind = textscan::nextWord(line);
    PressureLine* target = kind == "some" ? &out.some : kind == "full" ? &out.full : nullptr;
    if (!ok || !endsInNewline || target == nullptr || target->present ||
        !parsePressureLine(line, *target)) {
      ok = false;
    }
  });
  return ok && out.some.present;
}

}  // namespace halvexd
