// Stateless readers of the kernel's text interfaces under /proc and /sys.
// Each call opens and closes its file; failures are reported through the
// result (and, where stated, one log line with the tag "halvexd:StatUtil" on
// the system log buffer). Every path is a device path, resolved through
// sysrootPath; log lines name the device path.
//
// Each reader that interprets text has a pure parser beside it, taking the
// text and returning numbers, so the formats can be checked without files.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace halvexd {

// /proc/meminfo counters, all in kB. Readers write only the fields whose keys
// they meet; the caller owns (and initialises) the record.
struct SysMeminfoKb {
  uint64_t memTotal = 0;
  uint64_t memFree = 0;
  uint64_t memAvailable = 0;
  uint64_t buffers = 0;
  uint64_t cached = 0;
  uint64_t activeAnon = 0;
  uint64_t inactiveAnon = 0;
  uint64_t activeFile = 0;
  uint64_t inactiveFile = 0;
  uint64_t swapTotal = 0;
  uint64_t swapFree = 0;
  uint64_t shmem = 0;
  uint64_t sUnreclaim = 0;
  uint64_t kernelStack = 0;
  uint64_t pageTables = 0;
};

// The leading fields of /proc/<pid>/stat (the command name is not kept). The
// fault and time counters, vsize and rsslim are 32 bits wide: the kernel's
// larger values arrive truncated to their low 32 bits.
struct ProcessStat {
  int32_t pid = 0;
  char state = 0;
  int32_t ppid = 0;
  int32_t pgrp = 0;
  int32_t session = 0;
  int32_t ttyNr = 0;
  int32_t tpgid = 0;
  uint32_t flags = 0;
  uint32_t minflt = 0;
  uint32_t cminflt = 0;
  uint32_t majflt = 0;
  uint32_t cmajflt = 0;
  uint32_t utime = 0;  // clock ticks
  uint32_t stime = 0;  // clock ticks
  int32_t cutime = 0;
  int32_t cstime = 0;
  int32_t priority = 0;
  int32_t nice = 0;
  int32_t numThreads = 0;
  int32_t itrealvalue = 0;
  uint64_t starttime = 0;  // clock ticks since boot
  uint32_t vsize = 0;      // bytes
  int32_t rss = 0;         // pages
  uint32_t rsslim = 0;
};

// Room for a process name: 31 characters and the terminating zero.
constexpr size_t kProcessNameSize = 32;

namespace StatUtil {

// Monotonic clock in milliseconds (truncated).
uint64_t getUptimeMillis();

// Whole seconds of system uptime, the first number of /proc/uptime with its
// fraction dropped; 0 when the file cannot be opened, read or parsed.
int getUptime();

// Reads /proc/meminfo into the fields of `out` whose keys appear in it.
// False, with `out` untouched, only when the file cannot be opened; a file
// without any known key still gives true.
bool getMeminfo(SysMeminfoKb& out);

// Memory used by zram device 0, in KiB. Reads the third field of
// /sys/block/zram0/mm_stat, or, when that file is missing or unparsable, the
// older /sys/block/zram0/mem_used_total. An unparsable file logs (debug)
// "warning: failed to parse <path>". False when neither file gives a number;
// `out` may then hold 0.
bool getZramMemUsedKb(unsigned long& out);

// First unsigned decimal number of the file at device path `path`, after
// white space. True whenever the file opened: a file holding no number (or
// one too large for 64 bits) gives 0. When it cannot be opened, logs (error)
// "file open error is - <system error text>\n" and returns false with `out`
// untouched.
bool getUintValueFromFile(unsigned long& out, const char* path);

// /sys/kernel/mm/ksm/pages_sharing; 0 when unreadable (after the open-error
// line of getUintValueFromFile).
uint64_t getKsmPagesSharingCnt();

// /sys/kernel/slab/ksm_rmap_item/object_size in bytes; 0 when unreadable.
uint64_t getObjectSizeOfKsmRmapItem();

// Number of KSM rmap items: pages_sharing plus pages_shared, pages_unshared,
// pages_volatile and pages_sharing_always. Every page KSM tracks in any state
// holds one rmap item. An unreadable file counts as 0 (one open-error line
// each).
uint64_t getKsmRmapItemCnt();

// Updates the counts of /proc/lmk_stats for the names already in `stats`
// (the caller seeds the names it wants); other names are ignored. True when
// at least one entry was set; false when the file cannot be opened or no
// name matched.
bool getLmkStats(std::map<std::string, unsigned long>& stats);

// Per-process readers. A process may end at any moment, so a missing
// per-process file is an ordinary outcome: it gives false without a log line.

// Appends the id of every numeric entry of /proc (an entry counts when its
// name starts with a decimal number), in directory order; `pids` is not
// cleared. False, after logging (error) "Could not open /proc", when /proc
// cannot be listed; an empty /proc gives true.
bool getProcessList(std::vector<int>& pids);

// Appends the ids of the processes whose stat reads and whose rss is not 0;
// kernel threads (rss 0) are thereby left out. False when /proc cannot be
// listed, lists nothing, or no stat file could be read.
bool getProcessListRss(std::vector<int>& pids);

// Parses /proc/<pid>/stat into `stat`. False without a log when the file is
// missing; false after logging (error) "Failed to parse /proc/<pid>/stat" when
// it does not parse (then `stat` may be partly written).
bool getProcessStat(int pid, ProcessStat& stat);

// The first word of /proc/<pid>/comm. A binder thread's name says nothing
// about the process, so a name containing "Binder" is replaced by the first
// argument of the command line with its blanks removed, cut to its last 31
// characters; "unknown" when that cannot be read or itself contains "Binder".
// False, with `name` untouched, when comm is missing, empty, longer than 30
// bytes or blank.
bool getProcessName(int pid, char (&name)[kProcessNameSize]);

// The first argument of /proc/<pid>/cmdline (arguments are separated by zero
// bytes). False when the file is missing or empty. At most the first
// kMaxCmdlineBytes of the file are read.
bool getProcessCmdline(int pid, std::string& cmdline);

// Proportional set size of `pid` in kB: the graphics memory that the memory
// tracker reports (0 where it fails, after one error line) plus the kernel's
// figure from /proc/perfinfo. The kernel file holds one selection for the
// whole system: writing a pid selects the process, the next read answers
// "Pss: <n> kB"; one process-wide lock keeps two callers from interleaving.
// False after one error line when the file cannot be opened, written (after
// four attempts one second apart), reopened or its answer parsed; false
// without a line when it answers nothing. `pssKb` is set on entry and may
// hold the graphics part after a false result.
bool getProcessPss(int pid, unsigned long& pssKb);

// The id of the first process, in /proc's order, whose getProcessName equals
// `name` exactly. False when none does or /proc cannot be listed.
bool pidOf(std::string name, int& pid);

// Pure parsers behind the readers above.

// Longest name a /proc/lmk_stats line may carry, colon included. A longer
// name is skipped whole, never matched on its beginning.
constexpr size_t kMaxLmkNameLength = 63;

// Applies every "Name: value kB" line of meminfo text to `out`. A line counts
// only when its first word equals a key exactly (colon included) and a
// decimal number that fits 64 bits follows; others are skipped.
void parseMeminfo(std::string_view text, SysMeminfoKb& out);

// Third field (memory used, bytes) of zram's mm_stat text, after two integer
// fields. `usedBytes` gets the value, or 0 when the text does not give one
// (then the result is false).
bool parseZramMmStat(std::string_view text, unsigned long& usedBytes);

// First unsigned decimal number after leading white space. False, with
// `value` 0, when the text does not start with one or it exceeds 64 bits.
bool parseFirstUnsigned(std::string_view text, unsigned long& value);

// Applies lmk_stats text ("Name: value" lines) to the seeded names of
// `stats`: the name is the line's first word without its last character. A
// seeded name whose number is missing or unreadable is set to 0. True when at
// least one entry was set.
bool parseLmkStats(std::string_view text, std::map<std::string, unsigned long>& stats);

// The longest part of /proc/<pid>/cmdline that is read. The kernel itself
// served one page of arguments for years; a program's path fits in it.
constexpr size_t kMaxCmdlineBytes = 4096;

// Parses the text of /proc/<pid>/stat from its last ")" on (a command name may
// hold blanks and parentheses of its own), the pid from the start. Numbers
// wider than their field keep their low bits. False when there is no ")",
// the pid does not parse, or fewer than 23 fields follow the name.
bool parseProcessStat(std::string_view text, ProcessStat& stat);

// The first word (at most 31 characters) of one line of /proc/<pid>/comm,
// newline included in `line`. False, with `name` untouched, unless the line
// holds 1 to 30 bytes and a word.
bool parseProcessComm(std::string_view line, char (&name)[kProcessNameSize]);

// The name that replaces a binder thread's: `cmdline` (the first argument, or
// null when it could not be read) without blanks, cut to its last 31
// characters; "unknown" when it is null or contains "Binder".
std::string binderProcessName(const std::string* cmdline);

// The first argument of raw /proc/<pid>/cmdline bytes: the first line (its
// newline kept) up to the first zero byte. False when `raw` is empty.
bool parseProcessCmdline(std::string_view raw, std::string& cmdline);

// The figure of a "Pss: <n> kB" answer of /proc/perfinfo. False when the
// answer does not start with "Pss:" followed by a decimal number that fits
// 64 bits.
bool parsePerfinfoPss(std::string_view line, unsigned long& pssKb);

}  // namespace StatUtil
}  // namespace halvexd
