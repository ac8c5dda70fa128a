// The opt-in capabilities of "HalvexExtensions", a top-level object of the
// configuration file. With the key absent nothing of the daemon changes: no
// line, no record, no cost.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct cJSON;

namespace halvexd {

struct ExtensionConfig {
  bool present = false;
  struct CrossingSnapshot {
    bool active = false;
    unsigned topProcesses = 5;
    bool onStillAbove = false;
  } crossingSnapshot;
  struct DaemonCost {
    bool active = false;
    uint64_t intervalTicks = 120;
    uint64_t tickBudgetMs = 0;
  } daemonCost;
  struct SmapsRollupPss {
    bool active = false;
  } smapsRollupPss;
  struct Pressure {
    bool active = false;
    uint64_t sampleIntervalTicks = 1;
    uint64_t logcatIntervalTicks = 20;
    uint64_t reportIntervalTicks = 120;
    double memorySomeAvg10Threshold = 10.0;
    double memoryFullAvg10Threshold = 5.0;
  } pressure;

  // One sentence per mistake found in the section, in file order: the key,
  // what was found and what is used instead.
  std::vector<std::string> mistakes;

  // Reads the section `section` (null when the key is absent: everything
  // stays off and `present` false). Never fails: a value of the wrong JSON
  // type takes its default, a number out of bounds its nearest bound, an
  // unknown key is ignored; each adds one entry to `mistakes`.
  static ExtensionConfig parse(const cJSON* section);

  // Whether the extension named `extension` ("CrossingSnapshot", ...) is on.
  bool isActive(const std::string& extension) const;

  // The lines of the start-up summary, one per extension, with its settings.
  std::vector<std::string> summaryLines() const;
};

}  // namespace halvexd
