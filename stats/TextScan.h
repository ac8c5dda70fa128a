// Scanning of the kernel's text interfaces: words, lines and decimal
// integers, read from a std::string_view that each call advances past what it
// consumed. Pure functions, shared by the file parsers beside them.
#pragma once

#include <cstdint>
#include <string_view>

namespace halvexd::textscan {

// The C library's white space: blank, tab, newline, CR, VT, FF.
bool isBlank(char c);

// Drops leading white space from `rest`.
void skipBlanks(std::string_view& rest);

// The next word after white space; empty at the end of the text.
std::string_view nextWord(std::string_view& rest);

// Calls `onLine` with each line of `text`, without its newline; a last line
// without a newline counts, an empty text has no lines.
template <typename LineFn>
void forEachLine(std::string_view text, LineFn onLine) {
  while (!text.empty()) {
    size_t end = text.find('\n');
    onLine(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

// A decimal integer as it stands in the text, before any rule about its
// range is applied.
struct ScannedInteger {
  bool negative = false;
  uint64_t magnitude = 0;  // valid unless `overflow`
  bool overflow = false;   // more than 64 bits of digits
};

// The one integer scanner: after white space, an optional sign (only when
// `allowSign`), then at least one digit; reading stops at the first
// non-digit, and every digit is consumed even past 64 bits. False, with
// nothing but white space consumed, when no digit follows.
bool scanInteger(std::string_view& rest, bool allowSign, ScannedInteger& out);

// The two range rules over scanInteger. Counters (meminfo, lmk_stats, zram,
// perfinfo) refuse a number the kernel cannot have written instead of
// clamping it into a plausible one, while /proc/<pid>/stat fields read the way
// the C library's conversions read them, so both rules are kept.

// An unsigned number without sign. False when there is none or it exceeds
// 64 bits.
bool nextUnsigned(std::string_view& rest, uint64_t& value);

// A signed or unsigned number read like the C library: a value beyond 64 bits
// saturates (at the unsigned maximum, or at the signed extremes when
// `isSigned`); an unsigned reading of a negative number wraps. False only when
// there is no number.
bool nextInteger(std::string_view& rest, bool isSigned, uint64_t& bits);

// nextInteger into a 32-bit signed field, which takes the low 32 bits.
bool nextInt32(std::string_view& rest, int32_t& field);

}  // namespace halvexd::textscan
