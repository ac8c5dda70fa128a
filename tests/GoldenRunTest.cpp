// Whole-daemon runs over fixture device trees, compared line by line with the
// committed logs under tests/golden, and a long run that must leave the heap
// and the descriptor table as it found them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/support/GoldenRun.h"

namespace halvexd {
namespace {

using testing::GoldenRun;

class GoldenRunTest : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenRunTest, WholeLogOfBothBuffersMatchesTheExpectedFile) {
  if (GoldenRun::needsThread(GetParam()) && std::string(HALVEXD_EMULATOR) != "") {
    GTEST_SKIP() << "serves /proc/perfinfo from a thread, which the emulator cannot start";
  }
  GoldenRun run(GetParam());
  run.runCycle();
  const std::string expectedPath =
      std::string(HALVEXD_SOURCE_DIR) + "/tests/golden/" + GetParam() + "/expected.log";
  if (std::getenv("HALVEXD_GOLDEN_UPDATE") != nullptr) {
    std::ofstream(expectedPath, std::ios::trunc) << run.log();
  }
  std::stringstream expected;
  expected << std::ifstream(expectedPath).rdbuf();
  EXPECT_EQ(expected.str(), run.log());
}

INSTANTIATE_TEST_SUITE_P(Scenarios, GoldenRunTest,
                         ::testing::Values("tablet-day", "sample-option", "edge-figures",
                                           "old-zram", "service-off", "hostile-files",
                                           "large-data", "disk-shares", "stock-kernel",
                                           "perfinfo-kept", "extensions-off",
                                           "crossing-snapshot"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           std::string name = info.param;
                           for (char& c : name) c = c == '-' ? '_' : c;
                           return name;
                         });

size_t openDescriptors() {
  std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Processes are born and end with new pids every cycle, files vanish and come
// back. The heap's lowest figure over ten cycles (small buffers come and go
// with the order the directory lists) must be the same over the first ten
// and the last ten of a hundred cycles, and so must the open descriptors.
TEST(GoldenLeakTest, TwelveHundredTicksOfChurnKeepHeapAndDescriptorsFlat) {
  GoldenRun run("churn");
  auto tenCycles = [&run] {
    size_t lowest = SIZE_MAX;
    for (int cycle = 0; cycle < 10; ++cycle) {
      run.runCycle();
      run.clearLog();
      lowest = std::min(lowest, testing::heapBytesInUse());
    }
    return lowest;
  };
  const size_t heap = tenCycles();
  const size_t descriptors = openDescriptors();
  for (int tens = 1; tens < 9; ++tens) tenCycles();
  EXPECT_EQ(tenCycles(), heap);
  EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
}  // namespace halvexd
