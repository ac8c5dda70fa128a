// Pure parsers of the per-process kernel files (/proc/<pid>/stat, comm,
// cmdline, smaps_rollup) and of the answer of /proc/perfinfo.
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
// larger values arrive truncated to their low 32 bits. The record holds every
// leading field, as the reader promises; the monitors read pid, utime, stime,
// starttime and rss, and the others count towards the line's required shape.
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

// The longest part of /proc/<pid>/cmdline that StatUtil::getProcessCmdline
// reads. The kernel itself served one page of arguments for years; a
// program's path fits in it.
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

// What a binder thread's name needs of /proc/<pid>/cmdline: the end of the
// first argument (the file's first line, its newline kept, up to the first
// zero byte), gathered from the file's pieces as they are read, so that an
// argument of any length is never held whole.
struct FirstArgumentTail {
  std::string kept;         // the argument's last 31 characters that are not blanks
  std::string lastBytes;    // its last five bytes, to find "Binder" across pieces
  bool holdsBinder = false;  // the argument contains "Binder"
};

// Adds the next piece of the raw file to `tail`. False once the first
// argument has ended in this piece: nothing after it is needed.
bool parseCmdlinePiece(std::string_view piece, FirstArgumentTail& tail);

// The name that replaces a binder thread's: the first argument without
// blanks, cut to its last 31 characters (`tail`, or null when the command
// line could not be read); "unknown" when it is null or the argument
// contains "Binder".
std::string binderProcessName(const FirstArgumentTail* tail);

// Copies `source` into `name`, cut to 31 characters, zero-filled.
void copyProcessName(const std::string& source, char (&name)[kProcessNameSize]);

// The first argument of raw /proc/<pid>/cmdline bytes: the first line (its
// newline kept) up to the first zero byte. False when `raw` is empty.
bool parseProcessCmdline(std::string_view raw, std::string& cmdline);

// The figure of a "Pss: <n> kB" answer of /proc/perfinfo. False when the
// answer does not start with "Pss:" followed by a decimal number that fits
// 64 bits.
bool parsePerfinfoPss(std::string_view line, unsigned long& pssKb);

// The figure of the "Pss:" line of /proc/<pid>/smaps_rollup text, in kB. The
// line must be whole: "Pss:", a decimal number that fits 64 bits, "kB" and
// its newline, so a reading cut short by a process that ended never passes
// for a smaller figure. False when no such line is there (the first "Pss:"
// line decides; "Pss_Anon:" and the like are other lines).
bool parseSmapsRollupPss(std::string_view text, unsigned long& pssKb);

// A keyed number of a "Key:   123 kB" file (/proc/<pid>/status,
// /proc/<pid>/smaps_rollup): the key to look for and where the number goes.
using KeyedNumber = std::pair<std::string_view, uint64_t*>;

// Fills each keyed number whose key starts a line of `text`, followed by ':'
// and an unsigned decimal; a key met more than once keeps its first number.
// Returns how many keys were found.
size_t parseKeyedNumbers(std::string_view text, const std::vector<KeyedNumber>& keys);

}  // namespace halvexd
