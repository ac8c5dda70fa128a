#include "stats/StatUtil.h"

#include <dirent.h>
#include <fcntl.h>
#include <memtrack/memtrack.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <chrono>
#include <limits>
#include <mutex>
#include <thread>

#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"

namespace halvexd {
namespace StatUtil {
namespace {

constexpr const char* kTag = "halvexd:StatUtil";

constexpr const char* kMeminfoPath = "/proc/meminfo";
constexpr const char* kLmkStatsPath = "/proc/lmk_stats";
constexpr const char* kZramMmStatPath = "/sys/block/zram0/mm_stat";
constexpr const char* kZramMemUsedTotalPath = "/sys/block/zram0/mem_used_total";
constexpr const char* kKsmDir = "/sys/kernel/mm/ksm/";
constexpr const char* kKsmRmapItemObjectSizePath = "/sys/kernel/slab/ksm_rmap_item/object_size";
constexpr const char* kKsmPagesSharing = "pages_sharing";
// Page states besides pages_sharing that each hold an rmap item.
constexpr const char* kKsmOtherPageCounts[] = {"pages_shared", "pages_unshared", "pages_volatile",
                                               "pages_sharing_always"};

// A sysfs attribute is at most one page long; single-number files are read
// no further than that.
constexpr size_t kSingleValueReadBytes = 4096;

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

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void skipBlanks(std::string_view& rest) {
  size_t i = 0;
  while (i < rest.size() && isBlank(rest[i])) ++i;
  rest.remove_prefix(i);
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// The next word after blanks; empty at the end of the text.
std::string_view nextWord(std::string_view& rest) {
  skipBlanks(rest);
  size_t length = 0;
  while (length < rest.size() && !isBlank(rest[length])) ++length;
  std::string_view word = rest.substr(0, length);
  rest.remove_prefix(length);
  return word;
}

// An unsigned decimal number after blanks; reading stops at the first
// non-digit. False when there is no digit or the number exceeds 64 bits (a
// value the kernel cannot have written; it is not clamped into a plausible
// one).
bool nextUnsigned(std::string_view& rest, uint64_t& value) {
  skipBlanks(rest);
  if (rest.empty() || !isDigit(rest[0])) {
    return false;
  }
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  uint64_t result = 0;
  size_t i = 0;
  for (; i < rest.size() && isDigit(rest[i]); ++i) {
    uint64_t digit = static_cast<uint64_t>(rest[i] - '0');
    if (result > (kMax - digit) / 10) {
      return false;
    }
    result = result * 10 + digit;
  }
  rest.remove_prefix(i);
  value = result;
  return true;
}

// A signed integer after blanks whose value is not needed (a skipped field).
bool skipInteger(std::string_view& rest) {
  skipBlanks(rest);
  size_t i = 0;
  if (i < rest.size() && (rest[i] == '-' || rest[i] == '+')) ++i;
  size_t digits = i;
  while (i < rest.size() && isDigit(rest[i])) ++i;
  if (i == digits) {
    return false;
  }
  rest.remove_prefix(i);
  return true;
}

static_assert(sizeof(unsigned long) == sizeof(uint64_t), "counters are 64-bit on this target");

// Up to `maxBytes` of the file at `path` (a host path), cut after the first
// newline when `oneLine` is set; false when it cannot be opened. Scans read
// two or three of these for every process on the device, so files are read
// with plain read calls in page-sized chunks: a stdio stream would allocate
// its own buffer and ask for the file's status first, and reading it a
// character at a time takes its lock once per character.
bool readDeviceFile(const std::string& path, size_t maxBytes, bool oneLine, std::string& text) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  text.clear();
  char chunk[4096];
  while (text.size() < maxBytes) {
    ssize_t got = read(fd, chunk, std::min(sizeof(chunk), maxBytes - text.size()));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    std::string_view received(chunk, static_cast<size_t>(got));
    size_t newline = oneLine ? received.find('\n') : std::string_view::npos;
    if (newline != std::string_view::npos) {
      text.append(received.substr(0, newline + 1));
      break;
    }
    text.append(received);
  }
  close(fd);
  return true;
}

template <typename LineFn>
void forEachLine(std::string_view text, LineFn onLine) {
  while (!text.empty()) {
    size_t end = text.find('\n');
    onLine(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

// The longest part of a table file (meminfo, lmk_stats) that is read. A
// meminfo is under 2 KiB, and lines of any length up to this are read whole;
// a file that goes on and on (a character device, a runaway file, a line
// without end) is cut here instead of being read until memory runs out. The
// line cut at the bound is still parsed as it stands.
constexpr size_t kTableReadBytes = 8 * 1024 * 1024;

// Feeds each line of the device file at `path` to `onLine`, reading at most
// kTableReadBytes of it. False when the file cannot be opened.
template <typename LineFn>
bool forEachLineOfFile(const char* path, LineFn onLine) {
  std::string text;
  if (!readDeviceFile(sysrootPath(path), kTableReadBytes, false, text)) {
    return false;
  }
  forEachLine(text, onLine);
  return true;
}

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

// Reads a zram usage file with `parse` into `out` (0 when the text gives no
// number). False when the file is missing (no log, `out` untouched) or
// unparsable (one debug line).
bool readZramFile(const char* path, bool (*parse)(std::string_view, unsigned long&),
                  unsigned long& out) {
  std::string text;
  if (!readDeviceFile(sysrootPath(path), kSingleValueReadBytes, false, text)) {
    return false;
  }
  if (!parse(text, out)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_DEBUG, kTag, "warning: failed to parse %s",
                            path);
    return false;
  }
  return true;
}

uint64_t readCountOrZero(const std::string& path) {
  unsigned long value = 0;
  getUintValueFromFile(value, path.c_str());
  return value;
}

constexpr const char* kProcDir = "/proc";
constexpr const char* kPerfinfoPath = "/proc/perfinfo";

// The part of /proc/<pid>/stat that is read; the fields kept end well within
// it.
constexpr size_t kStatReadBytes = 511;
// A comm line holds at most 30 bytes; one more tells a longer line apart.
constexpr size_t kCommReadBytes = 31;
// The kernel's answer is one short line; anything beyond this is not read.
constexpr size_t kPerfinfoReadBytes = 255;
// Attempts to hand the pid to /proc/perfinfo, one second apart.
constexpr int kPerfinfoWriteAttempts = 4;

const char* const kBinder = "Binder";
const char* const kUnknownProcessName = "unknown";

// Serialises the select-then-read exchanges with /proc/perfinfo: the kernel
// keeps one selected pid for all its readers.
std::mutex perfinfoLock;

// A decimal integer after blanks, read the way the C library's conversions
// read it: an optional sign, then at least one digit. A value beyond 64 bits
// saturates (at the unsigned maximum, or at the signed extremes when
// `isSigned`); an unsigned reading of a negative number wraps. A narrower
// field takes the low bits of `bits`.
bool nextInteger(std::string_view& rest, bool isSigned, uint64_t& bits) {
  skipBlanks(rest);
  size_t i = 0;
  bool negative = false;
  if (i < rest.size() && (rest[i] == '-' || rest[i] == '+')) {
    negative = rest[i] == '-';
    ++i;
  }
  if (i >= rest.size() || !isDigit(rest[i])) {
    return false;
  }
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  uint64_t magnitude = 0;
  bool overflow = false;
  for (; i < rest.size() && isDigit(rest[i]); ++i) {
    uint64_t digit = static_cast<uint64_t>(rest[i] - '0');
    if (overflow || magnitude > (kMax - digit) / 10) {
      overflow = true;
      continue;
    }
    magnitude = magnitude * 10 + digit;
  }
  rest.remove_prefix(i);
  constexpr uint64_t kSignedMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (!isSigned) {
    bits = overflow ? kMax : (negative ? 0 - magnitude : magnitude);
  } else if (negative) {
    bits = (overflow || magnitude > kSignedMax + 1) ? kSignedMax + 1 : 0 - magnitude;
  } else {
    bits = (overflow || magnitude > kSignedMax) ? kSignedMax : magnitude;
  }
  return true;
}

bool nextInt32(std::string_view& rest, int32_t& field) {
  uint64_t bits = 0;
  if (!nextInteger(rest, true, bits)) return false;
  field = static_cast<int32_t>(static_cast<uint32_t>(bits));
  return true;
}

bool nextUint32(std::string_view& rest, uint32_t& field) {
  uint64_t bits = 0;
  if (!nextInteger(rest, false, bits)) return false;
  field = static_cast<uint32_t>(bits);
  return true;
}

bool nextUint64(std::string_view& rest, uint64_t& field) {
  return nextInteger(rest, false, field);
}

// "/proc/<pid>/<file>", the device path of a per-process file.
std::string procPidPath(int pid, const char* file) {
  char path[64];
  std::snprintf(path, sizeof(path), "/proc/%d/%s", pid, file);
  return path;
}

// Up to `maxBytes` of an open file, stopping after the first newline when
// `oneLine` is set. Zero bytes are kept: a caller decides what they end.
std::string readBounded(FILE* file, size_t maxBytes, bool oneLine) {
  std::string text;
  int c;
  while (text.size() < maxBytes && (c = std::fgetc(file)) != EOF) {
    text.push_back(static_cast<char>(c));
    if (oneLine && c == '\n') break;
  }
  return text;
}

// The per-process file `file` of `pid` read as by readDeviceFile.
bool readProcPidFile(int pid, const char* file, size_t maxBytes, bool oneLine, std::string& text) {
  return readDeviceFile(sysrootPath(procPidPath(pid, file).c_str()), maxBytes, oneLine, text);
}

void copyName(const std::string& source, char (&name)[kProcessNameSize]) {
  size_t length = std::min(source.size(), kProcessNameSize - 1);
  std::memcpy(name, source.data(), length);
  std::memset(name + length, 0, kProcessNameSize - length);
}

// Graphics memory of `pid` in kB as the memory tracker reports it; 0 after
// one error line when any of its answers is missing.
unsigned long memtrackPssKb(int pid) {
  memtrack_proc* handle = memtrack_proc_new();
  if (handle == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "failed to create memtrack_proc");
    return 0;
  }
  int code = memtrack_proc_get(handle, pid);
  if (code != 0) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag,
                            "failed to get memory consumption info: %d pid: %d", code, pid);
    memtrack_proc_destroy(handle);
    return 0;
  }
  struct Part {
    ssize_t (*read)(memtrack_proc*);
    const char* failure;
  };
  const Part parts[] = {
      {memtrack_proc_graphics_pss, "failed to get graphics pss: %zd pid: %d"},
      {memtrack_proc_gl_pss, "failed to get gl pss: %zd pid: %d"},
      {memtrack_proc_other_pss, "failed to get other pss: %zd pid: %d"},
  };
  unsigned long totalKb = 0;
  for (const Part& part : parts) {
    ssize_t bytes = part.read(handle);
    if (bytes < 0) {
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, part.failure, bytes, pid);
      memtrack_proc_destroy(handle);
      return 0;
    }
    totalKb += static_cast<unsigned long>(bytes) >> 10;
  }
  memtrack_proc_destroy(handle);
  return totalKb;
}

}  // namespace

uint64_t getUptimeMillis() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  uint64_t nanos = static_cast<uint64_t>(now.tv_sec) * 1000000000ULL +
                   static_cast<uint64_t>(now.tv_nsec);
  return nanos / 1000000ULL;
}

int getUptime() {
  FILE* file = std::fopen(sysrootPath("/proc/uptime").c_str(), "r");
  if (file == nullptr) {
    return 0;
  }
  char line[512] = {};
  float uptime = 0;
  float idle = 0;
  if (std::fgets(line, sizeof(line), file) != nullptr &&
      std::sscanf(line, "%f %f", &uptime, &idle) != 2) {
    uptime = 0;
  }
  std::fclose(file);
  // The float-to-int conversion is undefined beyond the int range; a garbled
  // file must not turn into undefined behaviour, so such values count as
  // unreadable.
  if (!(uptime > -2147483648.0f && uptime < 2147483648.0f)) {
    return 0;
  }
  return static_cast<int>(uptime);
}

void parseMeminfo(std::string_view text, SysMeminfoKb& out) {
  forEachLine(text, [&out](std::string_view line) { applyMeminfoLine(line, out); });
}

bool parseZramMmStat(std::string_view text, unsigned long& usedBytes) {
  // orig_data_size compr_data_size mem_used_total mem_limit mem_used_max ...;
  // kernels differ in how many fields follow, only the third is read.
  uint64_t value = 0;
  bool parsed = skipInteger(text) && skipInteger(text) && nextUnsigned(text, value);
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

bool getMeminfo(SysMeminfoKb& out) {
  return forEachLineOfFile(kMeminfoPath,
                           [&out](std::string_view line) { applyMeminfoLine(line, out); });
}

bool getZramMemUsedKb(unsigned long& out) {
  // mm_stat is always preferred; kernels before it only have the older
  // single-value file.
  if (!readZramFile(kZramMmStatPath, parseZramMmStat, out) &&
      !readZramFile(kZramMemUsedTotalPath, parseFirstUnsigned, out)) {
    return false;
  }
  out >>= 10;
  return true;
}

bool getUintValueFromFile(unsigned long& out, const char* path) {
  errno = 0;
  std::string text;
  if (!readDeviceFile(sysrootPath(path), kSingleValueReadBytes, false, text)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "file open error is - %s\n",
                            std::strerror(errno));
    return false;
  }
  parseFirstUnsigned(text, out);
  return true;
}

uint64_t getKsmPagesSharingCnt() {
  return readCountOrZero(std::string(kKsmDir) + kKsmPagesSharing);
}

uint64_t getObjectSizeOfKsmRmapItem() {
  return readCountOrZero(kKsmRmapItemObjectSizePath);
}

uint64_t getKsmRmapItemCnt() {
  uint64_t sharing = getKsmPagesSharingCnt();
  uint64_t others = 0;
  for (const char* name : kKsmOtherPageCounts) {
    others += readCountOrZero(std::string(kKsmDir) + name);
  }
  return sharing + others;
}

bool getLmkStats(std::map<std::string, unsigned long>& stats) {
  bool updated = false;
  bool opened = forEachLineOfFile(kLmkStatsPath, [&](std::string_view line) {
    updated = applyLmkLine(line, stats) || updated;
  });
  return opened && updated;
}

bool parseProcessStat(std::string_view text, ProcessStat& stat) {
  size_t nameEnd = text.rfind(')');
  std::string_view head = text;
  if (nameEnd == std::string_view::npos || !nextInt32(head, stat.pid)) {
    return false;
  }
  std::string_view rest = text.substr(nameEnd + 1);
  skipBlanks(rest);
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
  std::string_view word = nextWord(line);
  if (word.empty()) {
    return false;
  }
  copyName(std::string(word), name);
  return true;
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
  if (!nextUnsigned(line, value)) {
    return false;
  }
  pssKb = value;
  return true;
}

bool getProcessList(std::vector<int>& pids) {
  DIR* dir = opendir(sysrootPath(kProcDir).c_str());
  if (dir == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Could not open %s",
                            kProcDir);
    return false;
  }
  while (const dirent* entry = readdir(dir)) {
    std::string_view entryName(entry->d_name);
    int32_t pid = 0;
    if (nextInt32(entryName, pid)) {
      pids.push_back(pid);
    }
  }
  closedir(dir);
  return true;
}

bool getProcessListRss(std::vector<int>& pids) {
  std::vector<int> all;
  if (!getProcessList(all) || all.empty()) {
    return false;
  }
  bool anyRead = false;
  for (int pid : all) {
    ProcessStat stat{};
    stat.pid = pid;
    if (getProcessStat(pid, stat)) {
      anyRead = true;
      if (stat.rss != 0) {
        pids.push_back(pid);
      }
    }
  }
  return anyRead;
}

bool getProcessStat(int pid, ProcessStat& stat) {
  // Read as one block rather than up to a newline: a process may put a
  // newline into its own name, and its fields must still be found.
  std::string text;
  if (!readProcPidFile(pid, "stat", kStatReadBytes, false, text)) {
    return false;
  }
  if (!parseProcessStat(text, stat)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to parse %s",
                            procPidPath(pid, "stat").c_str());
    return false;
  }
  return true;
}

bool getProcessName(int pid, char (&name)[kProcessNameSize]) {
  std::string line;
  char parsed[kProcessNameSize] = {};
  if (!readProcPidFile(pid, "comm", kCommReadBytes, true, line) ||
      !parseProcessComm(line, parsed)) {
    return false;
  }
  if (std::strstr(parsed, kBinder) == nullptr) {
    std::memcpy(name, parsed, kProcessNameSize);
    return true;
  }
  std::string cmdline;
  bool haveCmdline = getProcessCmdline(pid, cmdline);
  copyName(binderProcessName(haveCmdline ? &cmdline : nullptr), name);
  return true;
}

bool getProcessCmdline(int pid, std::string& cmdline) {
  std::string raw;
  if (!readProcPidFile(pid, "cmdline", kMaxCmdlineBytes, false, raw)) {
    return false;
  }
  return parseProcessCmdline(raw, cmdline);
}

bool getProcessPss(int pid, unsigned long& pssKb) {
  pssKb = 0;
  pssKb += memtrackPssKb(pid);

  std::lock_guard<std::mutex> hold(perfinfoLock);
  const std::string path = sysrootPath(kPerfinfoPath);
  FILE* selection = std::fopen(path.c_str(), "r+");
  if (selection == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to open %s for write",
                            kPerfinfoPath);
    return false;
  }
  const std::string pidText = std::to_string(pid);
  int attempts = 1;
  while (std::fputs(pidText.c_str(), selection) < 0) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    if (attempts == kPerfinfoWriteAttempts) {
      // A stream opened for update must be flushed between writing and
      // reading.
      std::fflush(selection);
      readBounded(selection, kPerfinfoReadBytes, true);
      std::fclose(selection);
      __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to write %s",
                              kPerfinfoPath);
      return false;
    }
    ++attempts;
  }
  std::fclose(selection);

  FILE* answer = std::fopen(path.c_str(), "r");
  if (answer == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to open %s",
                            kPerfinfoPath);
    return false;
  }
  std::string line = readBounded(answer, kPerfinfoReadBytes, true);
  std::fclose(answer);
  if (line.empty()) {
    return false;
  }
  unsigned long perfinfoKb = 0;
  if (!parsePerfinfoPss(line, perfinfoKb)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to sscanf %s",
                            kPerfinfoPath);
    return false;
  }
  pssKb += perfinfoKb;
  return true;
}

bool pidOf(std::string name, int& pid) {
  std::vector<int> pids;
  if (!getProcessList(pids) || pids.empty()) {
    return false;
  }
  for (int candidate : pids) {
    char candidateName[kProcessNameSize] = {};
    if (getProcessName(candidate, candidateName) && name == candidateName) {
      pid = candidate;
      return true;
    }
  }
  return false;
}

}  // namespace StatUtil
}  // namespace halvexd
