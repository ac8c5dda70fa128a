#include "stats/StatUtil.h"

#include <dirent.h>
#include <fcntl.h>
#include <memtrack/memtrack.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <chrono>
#include <mutex>
#include <thread>

#include "platform/LogBuffers.h"
#include "platform/Sysroot.h"
#include "stats/TextScan.h"

namespace halvexd {
namespace StatUtil {
namespace {

constexpr const char* kTag = "halvexd:StatUtil";

constexpr const char* kUptimePath = "/proc/uptime";
constexpr const char* kProcStatPath = "/proc/stat";
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

// The one routine that reads a kernel file: hands `onPiece` each piece read
// of the file at `devicePath` (resolved through sysrootPath), at most
// `maxBytes` in all, until the file ends or `onPiece` returns false; false
// when the file cannot be opened. Scans read two or three files for every
// process on the device, so files are read with plain read calls in
// page-sized chunks: a stdio stream would allocate its own buffer and ask for
// the file's status first, and reading it a character at a time takes its
// lock once per character. A read that fails ends the reading; its error
// goes to `readError` when one is given (an open failure leaves errno set
// instead).
template <typename PieceFn>
bool readDeviceFilePieces(const std::string& devicePath, size_t maxBytes, PieceFn onPiece,
                          int* readError = nullptr) {
  int fd = open(sysrootPath(devicePath.c_str()).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return false;
  }
  char chunk[4096];
  size_t total = 0;
  while (total < maxBytes) {
    ssize_t got = read(fd, chunk, std::min(sizeof(chunk), maxBytes - total));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && readError != nullptr) *readError = errno;
    if (got <= 0) break;
    total += static_cast<size_t>(got);
    if (!onPiece(std::string_view(chunk, static_cast<size_t>(got)))) break;
  }
  close(fd);
  return true;
}

// Up to `maxBytes` of the file's text, cut after the first newline when
// `oneLine` is set; false when it cannot be opened.
bool readDeviceFile(const std::string& devicePath, size_t maxBytes, bool oneLine,
                    std::string& text, int* readError = nullptr) {
  text.clear();
  auto onPiece = [&text, oneLine](std::string_view received) {
    size_t newline = oneLine ? received.find('\n') : std::string_view::npos;
    if (newline != std::string_view::npos) {
      text.append(received.substr(0, newline + 1));
      return false;
    }
    text.append(received);
    return true;
  };
  return readDeviceFilePieces(devicePath, maxBytes, onPiece, readError);
}

// The longest part of a table file (meminfo, lmk_stats, /proc/stat) that is
// read. A meminfo is under 2 KiB, and lines of any length up to this are read
// whole; a file that goes on and on (a character device, a runaway file, a
// line without end) is cut here instead of being read until memory runs out.
// The line cut at the bound is still parsed as it stands.
constexpr size_t kTableReadBytes = 8 * 1024 * 1024;

// /proc/uptime is read as one line of at most this many bytes.
constexpr size_t kUptimeLineBytes = 511;

// The text of the table file at device path `path`, up to kTableReadBytes.
// False when the file cannot be opened.
bool readTableFile(const char* path, std::string& text) {
  return readDeviceFile(path, kTableReadBytes, false, text);
}

// Reads a zram usage file with `parse` into `out` (0 when the text gives no
// number). False when the file is missing (no log, `out` untouched) or
// unparsable (one debug line).
bool readZramFile(const char* path, bool (*parse)(std::string_view, unsigned long&),
                  unsigned long& out) {
  std::string text;
  if (!readDeviceFile(path, kSingleValueReadBytes, false, text)) {
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
constexpr const char* kPressureDir = "/proc/pressure/";

// smaps_rollup is about 1 KiB, its Pss line the third; a pressure file is
// two lines of under 80 bytes.
constexpr size_t kRollupReadBytes = 4096;
constexpr size_t kPressureReadBytes = 4096;

// /proc/<pid>/stat is read as one line of at most this many bytes; the
// fields kept end well within it.
constexpr size_t kStatLineBytes = 511;
// A command line is read no further than this in search of the end of its
// first argument. The kernel holds a single argument to 128 KiB; a process
// that rewrote its argument area can make the file longer, and a file that
// goes on and on (a character device in its place) is cut here.
constexpr size_t kCmdlineScanBytes = 8 * 1024 * 1024;
// A comm line holds at most 30 bytes; one more tells a longer line apart.
constexpr size_t kCommReadBytes = 31;
// The kernel's answer is one short line; anything beyond this is not read.
constexpr size_t kPerfinfoReadBytes = 255;
// Attempts to hand the pid to /proc/perfinfo, one second apart.
constexpr int kPerfinfoWriteAttempts = 4;

// Serialises the select-then-read exchanges with /proc/perfinfo: the kernel
// keeps one selected pid for all its readers.
std::mutex perfinfoLock;

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

// The end of the first argument of /proc/<pid>/cmdline, gathered piece by
// piece (parseCmdlinePiece) so that a command line of any length takes no
// more memory than its last characters. False when the file is missing or
// empty.
bool readFirstArgumentTail(int pid, FirstArgumentTail& tail) {
  bool anyByte = false;
  bool opened = readDeviceFilePieces(procPidPath(pid, "cmdline"), kCmdlineScanBytes,
                                     [&tail, &anyByte](std::string_view piece) {
                                       anyByte = true;
                                       return parseCmdlinePiece(piece, tail);
                                     });
  return opened && anyByte;
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
  return getUptimeFromFile(kUptimePath);
}

int getUptimeFromFile(const char* path) {
  std::string line;
  if (!readDeviceFile(path, kUptimeLineBytes, true, line)) {
    return 0;
  }
  return parseUptime(line);
}

std::vector<unsigned long> getCpuTimes() {
  return getCpuTimesFromFile(kProcStatPath);
}

std::vector<unsigned long> getCpuTimesFromFile(const char* path) {
  std::string text;
  if (!readTableFile(path, text)) {
    return {};
  }
  return parseCpuTimes(text);
}

bool getMeminfo(SysMeminfoKb& out) {
  return getMeminfoFromFile(kMeminfoPath, out);
}

bool getMeminfoFromFile(const char* path, SysMeminfoKb& out) {
  std::string text;
  if (!readTableFile(path, text)) {
    return false;
  }
  parseMeminfo(text, out);
  return true;
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
  if (!readDeviceFile(path, kSingleValueReadBytes, false, text)) {
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
  return getLmkStatsFromFile(kLmkStatsPath, stats);
}

bool getLmkStatsFromFile(const char* path, std::map<std::string, unsigned long>& stats) {
  std::string text;
  if (!readTableFile(path, text)) {
    return false;
  }
  return parseLmkStats(text, stats);
}

bool getProcessList(std::vector<int>& pids) {
  DIR* dir = opendir(sysrootPath(kProcDir).c_str());
  if (dir == nullptr) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Could not open %s",
                            kProcDir);
    return false;
  }
  const size_t listedBefore = pids.size();
  while (const dirent* entry = readdir(dir)) {
    std::string_view entryName(entry->d_name);
    int32_t pid = 0;
    if (textscan::nextInt32(entryName, pid)) {
      pids.push_back(pid);
    }
  }
  closedir(dir);
  // A directory lists its entries in whatever order its file system keeps;
  // procfs itself lists processes by pid, and so do these readers.
  std::sort(pids.begin() + static_cast<std::ptrdiff_t>(listedBefore), pids.end());
  return true;
}

bool getProcessListRss(std::vector<int>& pids, std::vector<int32_t>* rssPages) {
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
        if (rssPages != nullptr) rssPages->push_back(stat.rss);
      }
    }
  }
  return anyRead;
}

bool getProcessStat(int pid, ProcessStat& stat) {
  return getProcessStatFromFile(procPidPath(pid, "stat"), stat);
}

bool getProcessStatFromFile(const std::string& path, ProcessStat& stat) {
  std::string text;
  if (!readDeviceFile(path, kStatLineBytes, true, text)) {
    return false;
  }
  if (!parseProcessStat(text, stat)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to parse %s",
                            path.c_str());
    return false;
  }
  return true;
}

bool getProcessName(int pid, char (&name)[kProcessNameSize]) {
  std::string line;
  char parsed[kProcessNameSize] = {};
  if (!readDeviceFile(procPidPath(pid, "comm"), kCommReadBytes, true, line) ||
      !parseProcessComm(line, parsed)) {
    return false;
  }
  if (!isBinderThreadName(parsed)) {
    std::memcpy(name, parsed, kProcessNameSize);
    return true;
  }
  FirstArgumentTail tail;
  bool haveCmdline = readFirstArgumentTail(pid, tail);
  copyProcessName(binderProcessName(haveCmdline ? &tail : nullptr), name);
  return true;
}

bool getProcessCmdline(int pid, std::string& cmdline) {
  return getProcessCmdlineFromFile(procPidPath(pid, "cmdline"), cmdline);
}

bool getProcessCmdlineFromFile(const std::string& path, std::string& cmdline) {
  std::string raw;
  if (!readDeviceFile(path, kMaxCmdlineBytes, false, raw)) {
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

bool getProcessPssFromRollup(int pid, unsigned long& pssKb) {
  pssKb = memtrackPssKb(pid);
  unsigned long rollupKb = 0;
  if (!getSmapsRollupPssFromFile(procPidPath(pid, "smaps_rollup"), rollupKb)) {
    return false;
  }
  pssKb += rollupKb;
  return true;
}

bool getSmapsRollupPssFromFile(const std::string& path, unsigned long& pssKb) {
  std::string text;
  if (!readDeviceFile(path, kRollupReadBytes, false, text)) {
    return false;
  }
  if (!parseSmapsRollupPss(text, pssKb)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to parse %s",
                            path.c_str());
    return false;
  }
  return true;
}

bool havePerfinfo() {
  return access(sysrootPath(kPerfinfoPath).c_str(), F_OK) == 0;
}

int getPressure(const char* resource, PressureStall& out) {
  return getPressureFromFile(std::string(kPressureDir) + resource, out);
}

int getPressureFromFile(const std::string& path, PressureStall& out) {
  std::string text;
  int readError = 0;
  errno = 0;
  if (!readDeviceFile(path, kPressureReadBytes, false, text, &readError)) {
    return errno != 0 ? errno : ENOENT;
  }
  if (readError != 0) {
    return readError;
  }
  if (!parsePressure(text, out)) {
    __android_log_buf_print(kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, "Failed to parse %s",
                            path.c_str());
    return EBADMSG;
  }
  return 0;
}

bool getKeyedNumbersFromFile(const std::string& path, const std::vector<KeyedNumber>& keys) {
  constexpr size_t kKeyedFileReadBytes = 64 * 1024;
  std::string text;
  return readDeviceFile(path, kKeyedFileReadBytes, false, text) &&
         parseKeyedNumbers(text, keys) > 0;
}

bool countDirectoryEntries(const std::string& path, uint64_t& count) {
  DIR* dir = opendir(sysrootPath(path.c_str()).c_str());
  if (dir == nullptr) {
    return false;
  }
  count = 0;
  while (const dirent* entry = readdir(dir)) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") ++count;
  }
  closedir(dir);
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
