// Pure parsers of the system-wide kernel files: each takes the text a reader
// got from the file and returns numbers, so the formats are checked without
// files.
#pragma once

#include <cstddef>
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

// Longest name a /proc/lmk_stats line may carry, colon included. A longer
// name is skipped whole, never matched on its beginning.
constexpr size_t kMaxLmkNameLength = 63;

// Applies lmk_stats text ("Name: value" lines) to the seeded names of
// `stats`: the name is the line's first word without its last character. A
// seeded name whose number is missing or unreadable is set to 0. True when at
// least one entry was set.
bool parseLmkStats(std::string_view text, std::map<std::string, unsigned long>& stats);

// Whole seconds of uptime from the first line of /proc/uptime, which must
// start with two numbers ("<uptime> <idle>", read as C floats up to a zero
// byte). The first is read in single precision and its fraction dropped; 0
// when the line does not give two numbers or the first is outside the int
// range (or not a number).
int parseUptime(std::string_view line);

// Most counters kept from the aggregate line of /proc/stat. It holds ten on
// current kernels; a line with far more is not /proc/stat, and reading it
// must not grow without bound.
constexpr size_t kMaxCpuTimeCounters = 64;

// Counters of the aggregate "cpu" line of /proc/stat text (user, nice,
// system, idle, ...). The first five characters, or up to and including the
// first blank within them, are passed over; then numbers are taken while they
// follow one another across white space, so reading stops at the "cpu0" word
// that starts the next line. A number may carry a sign (a negative one wraps)
// and ends the list when it exceeds 64 bits; at most kMaxCpuTimeCounters are
// kept. Empty when the text starts otherwise.
std::vector<unsigned long> parseCpuTimes(std::string_view text);

// One line of a /proc/pressure file: the share of wall time in which some
// (or, for "full", all) runnable tasks were stalled on the resource, averaged
// over 10, 60 and 300 seconds, in hundredths of a percent (0 to 10000), and
// the stall time since boot in microseconds.
struct PressureLine {
  bool present = false;
  uint32_t avg10 = 0;
  uint32_t avg60 = 0;
  uint32_t avg300 = 0;
  uint64_t totalUs = 0;
};

// /proc/pressure/memory, cpu or io. "full" is absent on kernels that do not
// give it for the resource (cpu before 5.13).
struct PressureStall {
  PressureLine some;
  PressureLine full;
};

// Parses the text of a /proc/pressure file: lines "some" and, optionally,
// "full", each "avg10=A avg60=B avg300=C total=T" with the averages written
// with two decimals ("12.34") and T a decimal number that fits 64 bits. Every
// line must end in a newline (the kernel always writes one), so text cut
// short never yields a figure. False, with `out` in an unspecified state,
// when "some" is missing, a line is malformed, repeated or unknown, or an
// average is above 100.00.
bool parsePressure(std::string_view text, PressureStall& out);

}  // namespace halvexd
