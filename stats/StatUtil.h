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

}  // namespace StatUtil
}  // namespace halvexd
