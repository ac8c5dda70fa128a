// The benchmark suite's entry: registers the groups, throws the daemon's log
// records away (to /dev/null, so formatting and the write are still paid)
// unless HALVEXD_LOG_FILE says otherwise, and fails when any benchmark could
// not run, so that a smoke run in the test suite catches a broken one.
//
//   halvexd_bench [--sizes=100,1000,4000] [benchmark options]
//
// --sizes sets the numbers of idle children for the per-process scans.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/BenchRegistry.h"

namespace {

// The console output as usual, remembering whether any run failed.
class FailureCountingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) ++failures;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  int failures = 0;
};

// "100,1000" as numbers; empty when any item is not a positive number.
std::vector<long> parseSizes(const std::string& text) {
  std::vector<long> sizes;
  std::stringstream items(text);
  std::string item;
  while (std::getline(items, item, ',')) {
    char* end = nullptr;
    long size = std::strtol(item.c_str(), &end, 10);
    if (item.empty() || *end != '\0' || size <= 0) return {};
    sizes.push_back(size);
  }
  return sizes;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<long> sizes = {100, 1000, 4000};
  std::vector<char*> rest;
  for (int i = 0; i < argc; ++i) {
    constexpr const char* kSizes = "--sizes=";
    if (std::strncmp(argv[i], kSizes, std::strlen(kSizes)) == 0) {
      sizes = parseSizes(argv[i] + std::strlen(kSizes));
      if (sizes.empty()) {
        std::cerr << "halvexd_bench: --sizes takes positive numbers separated by commas\n";
        return 2;
      }
    } else {
      rest.push_back(argv[i]);
    }
  }
  setenv("HALVEXD_LOG_FILE", "/dev/null", 0);

  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) return 2;

  halvexd::bench::registerProcessScanBenchmarks(sizes);
  halvexd::bench::registerSystemMonitorBenchmarks();
  halvexd::bench::registerRecordBenchmarks();
  halvexd::bench::registerDaemonCostBenchmarks();

  FailureCountingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  if (reporter.failures > 0) {
    std::cerr << "halvexd_bench: " << reporter.failures << " benchmark(s) failed\n";
    return 1;
  }
  return 0;
}
