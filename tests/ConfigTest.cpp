// The configuration file: what it fills, the exact lines of its summary and of
// each failure, its size bound, and the property that picks the override file.
#include "config/HalvexConfig.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <set>

#include "platform/LogBuffers.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using namespace std::string_literals;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedEnv;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kSystemPath = "/system/system_ext/etc/halvex_config.json";
constexpr const char* kDataPath = "/data/halvex/halvex_config.json";
constexpr size_t kMiB = 1024 * 1024;

// One record using every key, and the structured-service settings.
const char* const kExample = R"({"MonitorConfig": [{"Monitor Name": "cpu", "MetricName": "CpuUsage",
  "Active": true, "Sample_interval_ticks": 2, "Metric_logcat_interval_ticks": 60,
  "Metric_report_interval_ticks": 120,
  "TRAZ_Metric_Interface": {"ProgramName": "halvexd", "Active": false},
  "Vedrix_Metric_Interface": {"Schema_Id": "s1", "Group_Id": "g1", "Active": true,
    "Metric_Key": {"Name": "key", "DimensionTag": "ktag", "Type": "ignored"},
    "Metric_Value": {"Name": "value", "DimensionTag": "vtag"},
    "Metrics": [{"DimensionTag": "t1", "Type": "float", "Name": "m1"}, null, {"Name": "m2"}]}}],
  "VedrixConfig": {"Enabled": true, "Region": "r1", "GroupId": "g0"}})";

LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, "halvexd", message};
}

LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, "halvexd", message};
}

std::set<std::string> keysOf(const HalvexConfig& config) {
  std::set<std::string> keys;
  for (const auto& entry : config.monitorConfigs) keys.insert(entry.first);
  return keys;
}

class ConfigFileTest : public ::testing::Test {
 protected:
  void writeFile(const char* path, const std::string& text) { device.write(path + 1, text); }

  TempDir device;
  TempDir host;
  ScopedSysroot sysroot{device.path()};
  ScopedEnv properties{"HALVEXD_PROPERTIES", host.path() + "/properties"};
  HalvexConfig config;
  LogCapture logs;
};

TEST_F(ConfigFileTest, ExampleLogsItsSummaryAndKeepsTheDescriptorsInOrder) {
  writeFile(kSystemPath, kExample);
  ASSERT_TRUE(config.loadConfig(kSystemPath));
  std::vector<LogRecord> summary;
  for (const char* line : {"Load JSON config\n\n", "vedrixConfig.enabled: 1\n",
                           "default group id: g0\n", "region: r1\n",
                           "==============================\n", "config.name cpu\n",
                           "config.metricName CpuUsage\n", "config.active 1\n",
                           "sampleIntervalTicks 2\n", "metricLogcatIntervalTicks 60\n",
                           "metricReportIntervalTicks 120\n", "trazMetricInterface.active 0\n",
                           "programName halvexd\n", "vedrixMetricInterface.active 1\n",
                           "schema id s1\n", "group id g1\n", "name key\n", "dimensionTag ktag\n",
                           "name value\n", "dimensionTag vtag\n", "Load JSON config done\n"}) {
    summary.push_back(info(line));
  }
  EXPECT_EQ(logs.records(), summary);
  const auto& vedrix = config.monitorConfigs.at("CpuUsage").vedrixMetricInterface;
  std::string descriptors = vedrix.metricKey.type;  // a key's type is not read
  for (const auto& m : vedrix.metrics) descriptors += m.name + "/" + m.type + "/" + m.dimensionTag;
  EXPECT_EQ(descriptors, "m1/float/t1m2//");  // in order, the null element skipped
}

TEST_F(ConfigFileTest, FailuresLogTheirLinesAndLeaveTheModelAsReadSoFar) {
  enum Model { kUntouched, kEmpty, kRecordsOnly };
  struct Row {
    const char* why;
    std::optional<std::string> file;
    bool notJson;  // else a required key is missing
    Model model;
    const char* standIn = nullptr;  // made a link to this instead of a file
  };
  const std::string minimal = R"({"MonitorConfig": [], "VedrixConfig": {}})";
  const Row rows[] = {
      {"no file", std::nullopt, true, kUntouched},
      {"empty file", "", true, kUntouched},
      {"garbage after the value", std::string(kExample) + " x", true, kUntouched},
      {"a second value", std::string(kExample) + "\n{}", true, kUntouched},
      {"a NUL byte hiding the rest", minimal + std::string(1, '\0') + "]]]", true, kUntouched},
      {"nested 100000 deep", std::string(100000, '[') + std::string(100000, ']'), true, kUntouched},
      {"a file without end", std::nullopt, true, kUntouched, "/dev/zero"},
      {"a directory in its place", std::nullopt, true, kUntouched, "/"},
      {"no MonitorConfig", R"({"VedrixConfig": {"Enabled": true}})", false, kEmpty},
      {"keys are case-sensitive", R"({"monitorConfig": [], "VedrixConfig": {}})", false, kEmpty},
      {"no VedrixConfig", R"({"MonitorConfig": [{"MetricName": "CpuUsage"}], "vedrixConfig": {}})",
       false, kRecordsOnly},
  };
  const std::string path = kSystemPath;
  const std::set<std::string> keys[] = {{"Sentinel"}, {}, {"CpuUsage"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    std::filesystem::remove(device.path() + kSystemPath);
    if (row.file) writeFile(kSystemPath, *row.file);
    if (row.standIn) std::filesystem::create_symlink(row.standIn, device.path() + kSystemPath);
    config.resetConfig();
    config.monitorConfigs["Sentinel"].name = "left from before";
    config.vedrixConfig = {true, "r", "g"};
    logs.clear();
    EXPECT_FALSE(config.loadConfig(kSystemPath));
    EXPECT_EQ(logs.records(),
              (std::vector<LogRecord>{
                  info("Load JSON config\n\n"),
                  error(row.notJson ? "root_json is null " + path + ", malformed json file?\n"
                                    : "Opening of " + path + " failed, could not parse json\n"),
                  error("Could not parse config file\n"), info("Load JSON config done\n")}));
    EXPECT_EQ(keysOf(config), keys[row.model]);
    EXPECT_EQ(config.vedrixConfig.enabled, row.model == kUntouched);
    EXPECT_EQ(config.vedrixConfig.region, row.model == kUntouched ? "r" : "");
  }
}

TEST_F(ConfigFileTest, FilesUpToOneMiBLoad) {
  const std::string minimal = R"({"MonitorConfig": [], "VedrixConfig": {"Enabled": true}})";
  for (long delta : {-1L, 0L, 1L}) {
    SCOPED_TRACE(delta);
    writeFile(kSystemPath, minimal + std::string(kMiB + delta - minimal.size(), '\n'));
    config.resetConfig();
    EXPECT_EQ(config.parseConfig(kSystemPath), delta <= 0 ? 0 : -1);
    EXPECT_EQ(config.vedrixConfig.enabled, delta <= 0);
  }
}

TEST_F(ConfigFileTest, OverridePropertyChoosesTheOnlyFileRead) {
  const std::tuple<const char*, bool, bool, const char*> rows[] = {
      // property file, system file, override file, metric name loaded (or the path that fails)
      {"", true, true, "FromSystem"},
      {"halvex.config.override=false\n", true, true, "FromSystem"},
      {"halvex.config.override=true\n", true, true, "FromData"},
      {"halvex.config.override=1\n", true, true, "FromData"},
      {"halvex.config.override=true\n", true, false, kDataPath},  // no fall-back either way
      {"", false, true, kSystemPath},
      {"Halvex.Config.Override=true\n", true, true, "FromSystem"},
  };
  auto fileWith = [](const std::string& metricName) {
    return R"({"MonitorConfig": [{"MetricName": ")" + metricName + R"("}], "VedrixConfig": {}})";
  };
  for (const auto& [property, systemFile, dataFile, outcome] : rows) {
    SCOPED_TRACE(std::string(property) + (systemFile ? "system " : "") + (dataFile ? "data" : ""));
    host.write("properties", property);
    std::filesystem::remove(device.path() + kSystemPath);
    std::filesystem::remove(device.path() + kDataPath);
    if (systemFile) writeFile(kSystemPath, fileWith("FromSystem"));
    if (dataFile) writeFile(kDataPath, fileWith("FromData"));
    config.resetConfig();
    logs.clear();
    const bool fails = outcome[0] == '/';
    EXPECT_EQ(config.parseConfig(kSystemPath), fails ? -1 : 0);
    EXPECT_EQ(keysOf(config), fails ? std::set<std::string>{} : std::set<std::string>{outcome});
    EXPECT_EQ(logs.records(), fails ? std::vector<LogRecord>{error("root_json is null "s + outcome +
                                                                   ", malformed json file?\n")}
                                    : std::vector<LogRecord>{});
  }
}

TEST_F(ConfigFileTest, ExtensionsSectionIsBoundedAndSummarised) {
  const std::string off = "extension SmapsRollupPss off";
  const std::string pressureDefaults =
      "extension Pressure off, sample every 1 ticks, logcat every 20 ticks, report every 120 "
      "ticks, some avg10 threshold 10%, full avg10 threshold 5%";
  const std::string snapshotDefaults =
      "extension CrossingSnapshot off, top 5 processes, on still above off";
  const std::string costDefaults = "extension DaemonCost off, every 120 ticks, tick budget none";
  const std::string x = "HalvexExtensions ";
  // The section's text (none: key absent); the warnings, then the summary lines.
  const std::tuple<const char*, std::vector<std::string>, std::vector<std::string>> rows[] = {
      {nullptr, {}, {}},
      {"{}", {}, {snapshotDefaults, costDefaults, off, pressureDefaults}},
      {R"({"CrossingSnapshot": {"Active": true, "Top_processes": 16, "On_still_above": true},
          "DaemonCost": {"Active": true, "Interval_ticks": 86400, "Tick_budget_ms": 250},
          "SmapsRollupPss": {"Active": true}, "Pressure": {"Active": true,
          "Sample_interval_ticks": 2, "Metric_logcat_interval_ticks": 3,
          "Metric_report_interval_ticks": 4, "Memory_some_avg10_threshold": 12.25,
          "Memory_full_avg10_threshold": 0}})",
       {},
       {"extension CrossingSnapshot on, top 16 processes, on still above on",
        "extension DaemonCost on, every 86400 ticks, tick budget 250 ms",
        "extension SmapsRollupPss on",
        "extension Pressure on, sample every 2 ticks, logcat every 3 ticks, report every 4 ticks, "
        "some avg10 threshold 12.25%, full avg10 threshold 0%"}},
      {R"({"CrossingSnapshot": {"Active": 1, "Top_processes": 40, "Top": 2},
          "DaemonCost": {"Interval_ticks": -5, "Tick_budget_ms": "100"}, "SmapsRollupPss": [],
          "Pressure": {"Sample_interval_ticks": 2.5, "Memory_full_avg10_threshold": 1e300,
          "Metric_report_interval_ticks": 0}, "Bogus": null})",
       {x + "\"CrossingSnapshot\" \"Active\" is a number, not true or false; using false",
        x + "\"CrossingSnapshot\" \"Top_processes\" is 40, above 16; using 16",
        x + "\"CrossingSnapshot\": unknown key \"Top\" ignored",
        x + "\"DaemonCost\" \"Interval_ticks\" is -5, below 1; using 1",
        x + "\"DaemonCost\" \"Tick_budget_ms\" is a string, not a number; using 0",
        x + "\"SmapsRollupPss\" is an array, not an object; the extension stays off",
        x + "\"Pressure\" \"Sample_interval_ticks\" is 2.5, not a whole number; using 1",
        x + "\"Pressure\" \"Memory_full_avg10_threshold\" is 1e+300, above 100; using 100",
        x + "\"Pressure\" \"Metric_report_interval_ticks\" is 0, below 1; using 1",
        "HalvexExtensions: unknown key \"Bogus\" ignored"},
       {"extension CrossingSnapshot off, top 16 processes, on still above off",
        "extension DaemonCost off, every 1 ticks, tick budget none", off,
        "extension Pressure off, sample every 1 ticks, logcat every 20 ticks, report every 1 "
        "ticks, some avg10 threshold 10%, full avg10 threshold 100%"}},
      {"[true]",
       {"HalvexExtensions is an array, not an object; every extension stays off"},
       {snapshotDefaults, costDefaults, off, pressureDefaults}},
  };
  for (const auto& [section, warnings, summary] : rows) {
    SCOPED_TRACE(section == nullptr ? "absent" : section);
    std::string text = R"({"MonitorConfig": [], "VedrixConfig": {})";
    if (section != nullptr) text += R"(, "HalvexExtensions": )" + std::string(section);
    writeFile(kSystemPath, text + "}");
    logs.clear();
    ASSERT_TRUE(config.loadConfig(kSystemPath));
    std::vector<LogRecord> expected = {info("Load JSON config\n\n"),
                                       info("vedrixConfig.enabled: 0\n"),
                                       info("default group id: \n"), info("region: \n")};
    for (const std::string& line : warnings) {
      expected.push_back({kSystemLogBuffer, ANDROID_LOG_WARN, "halvexd", line + "\n"});
    }
    for (const std::string& line : summary) expected.push_back(info(line + "\n"));
    expected.push_back(info("Load JSON config done\n"));
    EXPECT_EQ(logs.records(), expected);
  }
}

// Fills a fresh model from inline JSON text.
void parseText(HalvexConfig& config, const std::string& text) {
  cJSON* root = cJSON_Parse(text.c_str());
  ASSERT_NE(root, nullptr) << text;
  EXPECT_EQ(config.parseJsonData(root), 0) << text;
  cJSON_Delete(root);
}

TEST(ConfigValuesTest, ScalarKeysAreReadThroughTheirTypeAccessor) {
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  // The value of "Monitor Name", "Sample_interval_ticks" and "Active"; what each reads as.
  const std::tuple<const char*, const char*, uint64_t, bool> rows[] = {
      {"\"cpu\"", "cpu", 0, false},  {"2", "", 2, false},  {"7.9", "", 7, false},
      {"-1", "", kMax, false},  // sign-extended, no range check
      {"-2147483648", "", 18446744071562067968ULL, false},
      {"4294967296", "", 2147483647, false},  // the 32-bit payload saturates
      {"true", "", 1, true},  {"1", "", 1, false},  {"\"true\"", "true", 0, false},
      {"[\"cpu\"]", "", 0, false},
  };
  for (const auto& [json, name, ticks, active] : rows) {
    HalvexConfig config;
    std::string value = json;
    parseText(config, R"({"MonitorConfig": [{"MetricName": "m", "Monitor Name": )" + value +
                          ", \"Sample_interval_ticks\": " + value + ", \"Active\": " + value +
                          R"(}], "VedrixConfig": {}})");
    const auto& record = config.monitorConfigs.at("m");
    EXPECT_EQ(std::make_tuple(record.name, record.sampleIntervalTicks, record.active),
              std::make_tuple(std::string(name), ticks, active)) << value;
  }
}

TEST(ConfigValuesTest, ContainersOfTheWrongTypeAndRepeatedNames) {
  const std::pair<const char*, std::set<std::string>> rows[] = {
      {R"({"MonitorConfig": {"x": {"MetricName": "A"}}, "VedrixConfig": 5})", {"A"}},
      {R"({"MonitorConfig": [null, 7, {"MetricName": "A", "TRAZ_Metric_Interface": "x",
           "Vedrix_Metric_Interface": [1, {"Name": "n"}]}], "VedrixConfig": {}})", {"", "A"}},
  };
  for (const auto& [json, keys] : rows) {
    HalvexConfig config;
    parseText(config, json);
    EXPECT_EQ(keysOf(config), keys) << json;
  }
  // Half a million elements and descriptors, walked in one pass each.
  std::string many = R"({"MonitorConfig": [)";
  for (int i = 0; i < 250000; ++i) many += "0,";
  many += R"({"MetricName": "A", "Vedrix_Metric_Interface": {"Metrics": [)";
  for (int i = 0; i < 250000; ++i) many += "{},";
  HalvexConfig large;
  parseText(large, many + R"({}]}}], "VedrixConfig": {}})");
  EXPECT_EQ(keysOf(large), (std::set<std::string>{"", "A"}));
  EXPECT_EQ(large.monitorConfigs["A"].vedrixMetricInterface.metrics.size(), 250001u);
  // A later record of the same metric name replaces the earlier whole, over
  // twenty thousand records of one name.
  std::string repeated = R"({"MonitorConfig": [)";
  for (int i = 1; i < 20000; ++i) repeated += R"({"MetricName": "C", "Active": true},)";
  HalvexConfig config;
  parseText(config, repeated + R"({"MetricName": "C", "Monitor Name": "second",
      "Metric_report_interval_ticks": 9}], "VedrixConfig": {}})");
  EXPECT_EQ(keysOf(config), (std::set<std::string>{"C"}));
  const auto& c = config.monitorConfigs.at("C");
  EXPECT_EQ(std::make_tuple(c.name, c.active, c.sampleIntervalTicks, c.metricReportIntervalTicks),
            std::make_tuple("second"s, false, uint64_t{0}, uint64_t{9}));
}

}  // namespace
}  // namespace halvexd
