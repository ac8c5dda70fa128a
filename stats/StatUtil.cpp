#include "stats/StatUtil.h"

#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

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
  const char* name;
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

template <typename LineFn>
void forEachLine(std::string_view text, LineFn onLine) {
  while (!text.empty()) {
    size_t end = text.find('\n');
    onLine(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

// Feeds each line of the device file at `path` to `onLine`, reading line by
// line so that a long file never sits whole in memory. False when the file
// cannot be opened.
template <typename LineFn>
bool forEachLineOfFile(const char* path, LineFn onLine) {
  FILE* file = std::fopen(sysrootPath(path).c_str(), "r");
  if (file == nullptr) {
    return false;
  }
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t length;
  while ((length = getline(&buffer, &capacity, file)) != -1) {
    std::string_view line(buffer, static_cast<size_t>(length));
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    onLine(line);
  }
  std::free(buffer);
  std::fclose(file);
  return true;
}

// The start of an open file, at most kSingleValueReadBytes.
std::string readHead(FILE* file) {
  std::string text(kSingleValueReadBytes, '\0');
  size_t got = std::fread(text.data(), 1, text.size(), file);
  text.resize(got);
  return text;
}

void applyMeminfoLine(std::string_view line, SysMeminfoKb& out) {
  // Names are compared whole, so a name longer than every key (or one that
  // merely starts like a key) never matches.
  std::string_view name = nextWord(line);
  uint64_t value = 0;
  if (name.empty() || !nextUnsigned(line, value)) {
    return;
  }
  for (const MeminfoKey& key : kMeminfoKeys) {
    if (name == key.name) {
      out.*key.field = value;
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
  FILE* file = std::fopen(sysrootPath(path).c_str(), "r");
  if (file == nullptr) {
    return false;
  }
  std::string text = readHead(file);
  std::fclose(file);
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
  FILE* file = std::fopen(sysrootPath(path).c_str(), "r");
  if (file == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "file open error is - %s\n",
                            std::strerror(errno));
    return false;
  }
  std::string text = readHead(file);
  std::fclose(file);
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

}  // namespace StatUtil
}  // namespace halvexd
