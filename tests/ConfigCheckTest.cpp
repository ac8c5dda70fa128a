// The configuration checker on configurations that hit each way a record is
// or is not written: the exact line it prints for each, and its exit status.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "config/HalvexConfig.h"
#include "tests/support/TabletReport.h"
#include "tools/configcheck/ConfigCheckCommand.h"
#include "tools/configcheck/ConfigChecker.h"
#include "tools/common/ConfigFileLoader.h"

namespace halvexd {
namespace {

using tools::ConfigChecker;

struct Checked {
  int status;
  std::vector<std::string> lines;
  size_t written;
};

Checked checkFile(const std::string& path) {
  std::string error;
  EXPECT_TRUE(tools::ConfigFileLoader::load(path, error)) << error;
  ConfigChecker::Report report = ConfigChecker::check();
  std::ostringstream out;
  Checked checked{ConfigChecker::print(report, out), {}, 0};
  std::istringstream lines(out.str());
  std::string line;
  while (std::getline(lines, line)) checked.lines.push_back(line);
  checked.written = std::count_if(report.findings.begin(), report.findings.end(),
                                  [](const ConfigChecker::Finding& f) { return f.written; });
  HalvexConfig::instance().resetConfig();
  return checked;
}

TEST(ConfigCheckTest, EachCaseGetsItsLineAndTheExitStatusFollowsSilentNames) {
  struct Row {
    const char* proves;
    std::string file;
    int status;
    size_t written;
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {"the tablet's configuration writes every record of every name",
       testing::tabletConfigPath(), 0, 17,
       {"structured service: enabled, region \"eu\", default group \"hx_tablet\"",
        "SysHealthCpuUsage (ProcessCpuMonitor)",
        "  structured system-health record: written, group \"hx_health\", schema \"hx_health_cpu_v2\"",
        "PercentageUsed (DiskUsageMonitor)",
        "  plain record: written, as \"DiskUsageMonitorTablet:PercentageUsed:...:NR\"",
        "  structured multi-field records: written, group \"hx_tablet\", schema \"hx_disk_v1\"",
        "every configured name writes records"}},
      {"the structured service off silences a system-health name",
       "configs/structured-service-off.json", 1, 1,
       {"structured service: disabled, region \"eu\", default group \"hx_tablet\"",
        "  plain record: written, as \"SystemMemMonitorTablet:SystemMemMonitor:...:NR\"",
        "  structured single-value records: not written: structured service disabled "
        "(\"VedrixConfig\" \"Enabled\" is not true)",
        "  structured system-health record: not written: structured service disabled "
        "(\"VedrixConfig\" \"Enabled\" is not true)",
        "configured name \"SysHealthStorageUsage\" writes nothing: no record of any kind is "
        "written under it"}},
      {"a system-health name with its plain interface on writes nothing, for both monitors",
       "configs/health-name-with-plain-on.json", 1, 0,
       {"SysHealthCpuUsage (ProcessCpuMonitor)",
        "  structured system-health record: not written: plain interface active "
        "(\"TRAZ_Metric_Interface\" \"Active\" is true): a system-health record is written only "
        "while it is inactive",
        "SysHealthCpuUsage (CpuUsageMonitor)",
        "  plain record: not written: no configuration record \"CpuUsageMonitor\"",
        "configured name \"SysHealthCpuUsage\" writes nothing: no record of any kind is written "
        "under it"}},
      {"each interface switched off on its own; a name with both off writes nothing",
       "configs/interfaces-switched-off.json", 1, 2,
       {"CpuUsageMonitor (CpuUsageMonitor)",
        "  plain record: written, as \"CpuUsageMonitorTablet:CpuUsageMonitor:...:NR\"",
        "  structured single-value records: not written: Vedrix interface inactive "
        "(\"Vedrix_Metric_Interface\" \"Active\" is not true)",
        "PssKB (ProcessMemMonitor)",
        "  plain record: not written: plain interface inactive (\"TRAZ_Metric_Interface\" "
        "\"Active\" is not true)",
        "  structured single-value records: written, group \"hx_tablet\", schema \"hx_proc_pss_v1\"",
        "configured name \"CpuUsage\" writes nothing: no record of any kind is written under it"}},
      {"descriptors missing by name and by position, trailing commas, a missing key tag",
       "configs/descriptor-gaps.json", 1, 4,
       {"  structured system-health record: written, group \"hx_health\", schema "
        "\"hx_health_storage_v2\"",
        "  structured system-health record: warning: descriptor missing for field "
        "\"storage_snapshot_period\", so the field is left out",
        "  structured system-health record: warning: the last field is left out, so the body "
        "ends in a comma before the device fields",
        "  structured multi-field records: warning: descriptor missing for field \"percent_used\": "
        "position 2 is described as \"percentUsed\", so the field is left out",
        "  structured multi-field records: warning: the last field is left out, so the body ends "
        "in a comma before the device fields",
        "  structured single-value records: not written: \"Metric_Key\" has no \"DimensionTag\", "
        "so every body is empty",
        "  structured system-health record: not written: no descriptor matches a field the "
        "monitor sends, so the body is empty",
        "configured name \"SysHealthMemoryUsage\" writes nothing: no record of any kind is "
        "written under it"}},
      {"names the daemon never publishes, \"VMPRESSURE\" ones and a record without a name",
       "configs/names-the-daemon-never-publishes.json", 1, 1,
       {"configured name \"\" writes nothing: a record without \"MetricName\": the daemon "
        "publishes under no empty name",
        "configured name \"PercentUsed\" writes nothing: the daemon publishes under no such name",
        "configured name \"VMPRESSURE_low\" writes nothing: the daemon publishes under no such "
        "name (every name containing \"VMPRESSURE\" would share the one \"VMPRESSURE\" record "
        "for its plain record, but the daemon publishes none)"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    std::string path = row.file.rfind("configs/", 0) == 0 ? testing::fixturePath(row.file) : row.file;
    Checked checked = checkFile(path);
    EXPECT_EQ(checked.status, row.status);
    EXPECT_EQ(checked.written, row.written);
    for (const std::string& line : row.lines) {
      EXPECT_NE(std::find(checked.lines.begin(), checked.lines.end(), line), checked.lines.end())
          << "missing line: " << line;
    }
  }
}

TEST(ConfigCheckTest, PositionalFieldsNeedAsManyDescriptorsAsFields) {
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  config.vedrixConfig.enabled = true;
  auto& disk = config.monitorConfigs["PercentageUsed"];
  disk.metricName = "PercentageUsed";
  disk.vedrixMetricInterface.active = true;
  disk.vedrixMetricInterface.metrics = {{"partition_path", "p", "str"},
                                        {"percent_used", "u", "int"},
                                        {"total", "t", "int"}};
  ConfigChecker::Report report = ConfigChecker::check();
  auto found = std::find_if(report.findings.begin(), report.findings.end(),
                            [](const ConfigChecker::Finding& f) {
                              return f.recordKind == "structured multi-field records";
                            });
  ASSERT_NE(found, report.findings.end());
  EXPECT_FALSE(found->written);
  EXPECT_EQ(found->detail,
            "2 fields sent, 3 descriptors configured: fields are matched by position, so the "
            "counts must be equal");
  config.resetConfig();
}

struct CheckRun {
  int status;
  std::vector<std::string> lines;
  std::string err;
};

CheckRun runCheck(const std::vector<std::string>& args) {
  std::ostringstream out, err;
  CheckRun run{tools::runConfigCheck(args, out, err), {}, err.str()};
  std::istringstream lines(out.str());
  std::string line;
  while (std::getline(lines, line)) run.lines.push_back(line);
  HalvexConfig::instance().resetConfig();
  return run;
}

TEST(ConfigCheckTest, AFileThatFailsToLoadIsReportedAsTheDaemonRunsWithIt) {
  testing::TempDir dir;
  const std::string daemonWould =
      "; the daemon would log \"WARN: Failed to load config file\" and run with ";
  const std::string unreadable =
      ": cannot be read, is larger than 1048576 bytes, or is not one JSON value" + daemonWould +
      "an empty configuration";
  const std::string pssPlain = "  plain record: written, as \"ProcessMemMonitorTablet:PssKB:...:NR\"";
  const std::string pssNotConfigured = "  plain record: not written: no configuration record \"PssKB\"";
  struct Row {
    const char* proves;
    std::string contents;  // empty: the file does not exist
    std::string warning;   // after the path
    std::string reportLine;
  };
  const Row rows[] = {
      {"no \"VedrixConfig\": the monitor records are kept and their plain records written",
       "{\"MonitorConfig\": [{\"MetricName\": \"PssKB\", \"TRAZ_Metric_Interface\": "
       "{\"Active\": true}}]}",
       ": \"VedrixConfig\" is missing" + daemonWould +
           "the monitor records read before it (structured service disabled)",
       pssPlain},
      {"no \"MonitorConfig\": nothing is read",
       "{\"VedrixConfig\": {\"Enabled\": true}}",
       ": \"MonitorConfig\" is missing" + daemonWould + "an empty configuration", pssNotConfigured},
      {"not JSON", "{\"MonitorConfig\": [", unreadable, pssNotConfigured},
      {"a second value after the first", "{} {}", unreadable, pssNotConfigured},
      {"a file that is not there", "", unreadable, pssNotConfigured},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    std::string path =
        row.contents.empty() ? dir.path() + "/absent.json" : dir.write("config.json", row.contents);
    CheckRun run = runCheck({path});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    ASSERT_GE(run.lines.size(), 2u);
    EXPECT_EQ(run.lines[0], "warning: " + path + row.warning);
    EXPECT_EQ(run.lines[1].rfind("structured service: ", 0), 0u) << run.lines[1];
    EXPECT_NE(std::find(run.lines.begin(), run.lines.end(), row.reportLine), run.lines.end())
        << "missing line: " << row.reportLine;
  }
}

TEST(ConfigCheckTest, ExitStatusTwoIsForBadUsageOnly) {
  struct Row {
    const char* proves;
    std::vector<std::string> args;
    int status;
  };
  const Row rows[] = {
      {"no file", {}, 2},
      {"two files", {"a.json", "b.json"}, 2},
      {"an option", {"--all"}, 2},
      {"an empty name", {""}, 2},
      {"the tablet's configuration passes", {testing::tabletConfigPath()}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.proves);
    CheckRun run = runCheck(row.args);
    EXPECT_EQ(run.status, row.status);
    if (row.status == 2) {
      EXPECT_EQ(run.lines, std::vector<std::string>());
      EXPECT_EQ(run.err.rfind("halvex-config-check: one configuration file expected\n", 0), 0u);
    } else {
      EXPECT_EQ(run.err, "");
      EXPECT_EQ(run.lines.back(), "every configured name writes records");
    }
  }
}

}  // namespace
}  // namespace halvexd
