// Stateless readers of the kernel's text interfaces under /proc and /sys.
// Each call opens and closes its file; failures are reported through the
// result (and, where stated, one log line with the tag "halvexd:StatUtil" on
// the system log buffer). Every path is a device path, resolved through
// sysrootPath; log lines name the device path.
//
// Each reader reads the file's text and hands it to a pure parser
// (stats/SystemFileParsers.h, stats/ProcessFileParsers.h). A reader whose path
// is a parameter (...FromFile) is the one tests call: with no sysroot set, any
// absolute host path is read as it is. The reader of a fixed kernel path is a
// one-line wrapper over it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "stats/ProcessFileParsers.h"
#include "stats/SystemFileParsers.h"

namespace halvexd {

namespace StatUtil {

// Monotonic clock in milliseconds (truncated).
uint64_t getUptimeMillis();

// Whole seconds of system uptime, parseUptime over the first line (at most
// 511 bytes) of /proc/uptime; 0 when the file cannot be opened or read.
int getUptime();
int getUptimeFromFile(const char* path);

// Counters of the aggregate line of /proc/stat (parseCpuTimes over the file's
// text, read up to the table bound); empty when the file cannot be opened.
std::vector<unsigned long> getCpuTimes();
std::vector<unsigned long> getCpuTimesFromFile(const char* path);

// Reads /proc/meminfo into the fields of `out` whose keys appear in it
// (parseMeminfo). False, with `out` untouched, only when the file cannot be
// opened; a file without any known key still gives true.
bool getMeminfo(SysMeminfoKb& out);
bool getMeminfoFromFile(const char* path, SysMeminfoKb& out);

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
// (the caller seeds the names it wants; parseLmkStats); other names are
// ignored. True when at least one entry was set; false when the file cannot be
// opened or no name matched.
bool getLmkStats(std::map<std::string, unsigned long>& stats);
bool getLmkStatsFromFile(const char* path, std::map<std::string, unsigned long>& stats);

// Per-process readers. A process may end at any moment, so a missing
// per-process file is an ordinary outcome: it gives false without a log line.

// Appends the id of every numeric entry of /proc (an entry counts when its
// name starts with a decimal number), in ascending order as the kernel's
// procfs lists them, whatever order the directory gives; `pids` is not
// cleared. False, after logging (error) "Could not open /proc", when /proc
// cannot be listed; an empty /proc gives true.
bool getProcessList(std::vector<int>& pids);

// Appends the ids of the processes whose stat reads and whose rss is not 0;
// kernel threads (rss 0) are thereby left out. With `rssPages`, each listed
// process's rss (in pages) is appended to it as well. False when /proc cannot
// be listed, lists nothing, or no stat file could be read.
bool getProcessListRss(std::vector<int>& pids, std::vector<int32_t>* rssPages = nullptr);

// Parses the first line (at most 511 bytes) of /proc/<pid>/stat into `stat`.
// False without a log when the file is missing; false after logging (error)
// "Failed to parse /proc/<pid>/stat" when it does not parse (then `stat` may
// be partly written). A process may put a newline into its own name: the
// line then ends inside the name, holds no ")" and does not parse.
bool getProcessStat(int pid, ProcessStat& stat);
// The same for the stat file at device path `path`, named so in the log line.
bool getProcessStatFromFile(const std::string& path, ProcessStat& stat);

// The first word of /proc/<pid>/comm. A binder thread's name says nothing
// about the process, so a name containing "Binder" is replaced by the first
// argument of the command line with its blanks removed, cut to its last 31
// characters; "unknown" when that cannot be read or itself contains "Binder".
// The command line is read in pieces, keeping only the argument's end, so an
// argument of any length (up to 8 MiB read) gives its exact last characters.
// False, with `name` untouched, when comm is missing, empty, longer than 30
// bytes or blank.
bool getProcessName(int pid, char (&name)[kProcessNameSize]);

// The first argument of /proc/<pid>/cmdline (arguments are separated by zero
// bytes). False when the file is missing or empty. At most the first
// kMaxCmdlineBytes of the file are read. Part of the readers' interface for
// callers that want the argument itself; getProcessName does not use it, as
// the end of a longer argument, which names the program, would be cut off.
bool getProcessCmdline(int pid, std::string& cmdline);
bool getProcessCmdlineFromFile(const std::string& path, std::string& cmdline);

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

// Proportional set size of `pid` in kB where /proc/perfinfo is missing: the
// memory tracker's graphics part (as getProcessPss) plus the "Pss:" line of
// /proc/<pid>/smaps_rollup. The kernel walks the process's page tables to
// answer, so this costs far more than the stat or comm files. False without a
// line when the file is missing (the process has ended); false after logging
// (error) "Failed to parse /proc/<pid>/smaps_rollup" when it holds no whole
// Pss line (one cut short as the process ended, say). `pssKb` as for
// getProcessPss.
bool getProcessPssFromRollup(int pid, unsigned long& pssKb);
// The smaps_rollup part alone, from the file at device path `path`.
bool getSmapsRollupPssFromFile(const std::string& path, unsigned long& pssKb);

// True when the device has /proc/perfinfo.
bool havePerfinfo();

// Reads /proc/pressure/<resource> ("memory", "cpu" or "io") with
// parsePressure. 0 on success; otherwise the system error number of the
// open or of a failed read (ENOENT on a kernel without pressure stall
// information, EOPNOTSUPP on one that has it switched off), or EBADMSG after
// logging (error) "Failed to parse <path>" when the text does not parse. At
// most 4 KiB are read: a file that goes on fails to parse.
int getPressure(const char* resource, PressureStall& out);
int getPressureFromFile(const std::string& path, PressureStall& out);

// The keyed numbers (parseKeyedNumbers) of the file at device path `path`,
// read up to 64 KiB. False when the file cannot be read or holds none of
// the keys; keys it lacks are left untouched.
bool getKeyedNumbersFromFile(const std::string& path, const std::vector<KeyedNumber>& keys);

// Entries of the directory at device path `path`, "." and ".." aside (the
// open descriptors of /proc/<pid>/fd). False when it cannot be listed.
bool countDirectoryEntries(const std::string& path, uint64_t& count);

// The id of the first process, in /proc's order, whose getProcessName equals
// `name` exactly. False when none does or /proc cannot be listed.
bool pidOf(std::string name, int& pid);

}  // namespace StatUtil
}  // namespace halvexd
