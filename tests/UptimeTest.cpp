#include <gtest/gtest.h>

#include <chrono>

#include "stats/StatUtil.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::ScopedSysroot;
using testing::TempDir;

TEST(UptimeTest, WholeSecondsOfFirstNumberOrZero) {
  struct Case {
    const char* contents;
    int expected;
    const char* why;
  };
  const Case cases[] = {
      {"12345.99 54321.00\n", 12345, "fraction dropped, not rounded"},
      {"200.43 1523.11", 200, "no trailing newline"},
      {"179.999 3.0\n", 179, "just below the boot wait's end stays below"},
      {"0.50 0.10\n", 0, "under a second reads as unreadable"},
      {"200.43\n", 0, "only one number"},
      {"", 0, "empty file"},
      {"abc def\n", 0, "not numbers"},
      {"1e30 1\n", 0, "beyond the 32-bit range"},
      {"nan 1\n", 0, "not a number"},
      {"-5.5 1\n", -5, "negative truncates toward zero"},
      {"16777217.0 1\n", 16777216, "single precision loses the last second"},
  };
  TempDir root;
  ScopedSysroot sysroot(root.path());
  for (const auto& c : cases) {
    root.write("proc/uptime", c.contents);
    EXPECT_EQ(StatUtil::getUptime(), c.expected) << c.why;
  }
}

TEST(UptimeTest, MissingFileIsZero) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  EXPECT_EQ(StatUtil::getUptime(), 0);
}

TEST(UptimeTest, LongLineReadsOnlyItsStart) {
  TempDir root;
  ScopedSysroot sysroot(root.path());
  root.write("proc/uptime", "300.25 " + std::string(4096, '9') + "\n");
  EXPECT_EQ(StatUtil::getUptime(), 300);
}

TEST(UptimeTest, MillisFollowTheMonotonicClock) {
  auto before = std::chrono::duration_cast<std::chrono::milliseconds>(
                    std::chrono::steady_clock::now().time_since_epoch())
                    .count();
  uint64_t millis = StatUtil::getUptimeMillis();
  auto after = std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
                   .count();
  EXPECT_GE(millis, static_cast<uint64_t>(before));
  EXPECT_LE(millis, static_cast<uint64_t>(after));
}

}  // namespace
}  // namespace halvexd
