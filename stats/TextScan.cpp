#include "stats/TextScan.h"

#include <limits>

namespace halvexd::textscan {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

void skipBlanks(std::string_view& rest) {
  size_t i = 0;
  while (i < rest.size() && isBlank(rest[i])) ++i;
  rest.remove_prefix(i);
}

std::string_view nextWord(std::string_view& rest) {
  skipBlanks(rest);
  size_t length = 0;
  while (length < rest.size() && !isBlank(rest[length])) ++length;
  std::string_view word = rest.substr(0, length);
  rest.remove_prefix(length);
  return word;
}

bool scanInteger(std::string_view& rest, bool allowSign, ScannedInteger& out) {
  skipBlanks(rest);
  size_t i = 0;
  bool negative = false;
  if (allowSign && i < rest.size() && (rest[i] == '-' || rest[i] == '+')) {
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
  out.negative = negative;
  out.magnitude = magnitude;
  out.overflow = overflow;
  return true;
}

bool nextUnsigned(std::string_view& rest, uint64_t& value) {
  ScannedInteger scanned;
  if (!scanInteger(rest, false, scanned) || scanned.overflow) {
    return false;
  }
  value = scanned.magnitude;
  return true;
}

bool nextInteger(std::string_view& rest, bool isSigned, uint64_t& bits) {
  ScannedInteger scanned;
  if (!scanInteger(rest, true, scanned)) {
    return false;
  }
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  constexpr uint64_t kSignedMax = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  const uint64_t magnitude = scanned.magnitude;
  if (!isSigned) {
    bits = scanned.overflow ? kMax : (scanned.negative ? 0 - magnitude : magnitude);
  } else if (scanned.negative) {
    bits = (scanned.overflow || magnitude > kSignedMax + 1) ? kSignedMax + 1 : 0 - magnitude;
  } else {
    bits = (scanned.overflow || magnitude > kSignedMax) ? kSignedMax : magnitude;
  }
  return true;
}

bool nextInt32(std::string_view& rest, int32_t& field) {
  uint64_t bits = 0;
  if (!nextInteger(rest, true, bits)) return false;
  field = static_cast<int32_t>(static_cast<uint32_t>(bits));
  return true;
}

}  // namespace halvexd::textscan
