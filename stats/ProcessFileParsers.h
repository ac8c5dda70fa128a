// Pure parsers of the per-process kernel files (/proc/<pid>/stat, comm,
// cmdline) and of the answer of /proc/perfinfo.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvexd {

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

// True when the comm name `name` contains "Binder": a binder thread's name,
// which says nothing about its process.
bool isBinderThreadName(const char* name);

// The name that replaces a binder thread's: `cmdline` (the first argument, or
// null when it could not be read) without blanks, cut to its last 31
// characters; "unknown" when it is null or contains "Binder".
std::string binderProcessName(const std::string* cmdline);

// Copies `source` into `name`, cut to 31 characters, zero-filled.
void copyProcessName(const std::string& source, char (&name)[kProcessNameSize]);

// The first argument of raw /proc/<pid>/cmdline bytes: the first line (its
// newline kept) up to the first zero byte. False when `raw` is empty.
bool parseProcessCmdline(std::string_view raw, std::string& cmdline);

// The figure of a "Pss: <n> kB" answer of /proc/perfinfo. False when the
// answer does not start with "Pss:" followed by a decimal number that fits
// 64 bits.
bool parsePerfinfoPss(std::string_view line, unsigned long& pssKb);

// A keyed number of a "Key:   123 kB" file (/proc/<pid>/status,
// /proc/<pid>/smaps_rollup): the key to look for and where the number goes.
using KeyedNumber = std::pair<std::string_view, uint64_t*>;

// Fills each keyed number whose key starts a line of `text`, followed by ':'
// and an unsigned decimal; a key met more than once keeps its first number.
// Returns how many keys were found.
size_t parseKeyedNumbers(std::string_view text, const std::vector<KeyedNumber>& keys);

}  // namespace halvexd
