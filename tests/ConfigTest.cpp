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

using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedEnv;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kSystemPath = "/system/system_ext/etc/halvex_config.json";
constexpr const char* kDataPath = "/data/halvex/halvex_config.json";
constexpr size_t kMiB = 1024 * 1024;

// One record using every key, and the structured-service settings.
const char* const kExample = R"({
  "MonitorConfig": [
    { "Monitor Name": "cpu", "MetricName": "CpuUsage", "Active": true,
      "Sample_interval_ticks": 2, "Metric_logcat_interval_ticks": 60,
      "Metric_report_interval_ticks": 120,
      "TRAZ_Metric_Interface": { "ProgramName": "halvexd", "Active": false },
      "Vedrix_Metric_Interface": { "Schema_Id": "s1", "Group_Id": "g1", "Active": true,
        "Metric_Key": { "Name": "key", "DimensionTag": "ktag", "Type": "ignored" },
        "Metric_Value": { "Name": "value", "DimensionTag": "vtag" },
        "Metrics": [ { "DimensionTag": "t1", "Type": "float", "Name": "m1" }, null,
                     { "Name": "m2" } ] } }
  ],
  "VedrixConfig": { "Enabled": true, "Region": "r1", "GroupId": "g0" }
})";

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
  void writeFile(const char* devicePath, const std::string& contents) {
    device.write(devicePath + 1, contents);
  }

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
  for (const char* line :
       {"Load JSON config\n\n", "vedrixConfig.enabled: 1\n", "default group id: g0\n",
        "region: r1\n", "==============================\n", "config.name cpu\n",
        "config.metricName CpuUsage\n", "config.active 1\n", "sampleIntervalTicks 2\n",
        "metricLogcatIntervalTicks 60\n", "metricReportIntervalTicks 120\n",
        "trazMetricInterface.active 0\n", "programName halvexd\n",
        "vedrixMetricInterface.active 1\n", "schema id s1\n", "group id g1\n", "name key\n",
        "dimensionTag ktag\n", "name value\n", "dimensionTag vtag\n", "Load JSON config done\n"}) {
    summary.push_back(info(line));
  }
  EXPECT_EQ(logs.records(), summary);
  const auto& vedrix = config.monitorConfigs.at("CpuUsage").vedrixMetricInterface;
  EXPECT_EQ(vedrix.metricKey.type, "");
  ASSERT_EQ(vedrix.metrics.size(), 2u);  // the null element is skipped
  EXPECT_EQ(vedrix.metrics[0].name + vedrix.metrics[0].type + vedrix.metrics[0].dimensionTag,
            "m1floatt1");
  EXPECT_EQ(vedrix.metrics[1].name + vedrix.metrics[1].type + vedrix.metrics[1].dimensionTag, "m2");
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
      {"cut short", std::string(kExample).substr(0, 100), true, kUntouched},
      {"garbage after the value", std::string(kExample) + " x", true, kUntouched},
      {"a second value", std::string(kExample) + "\n{}", true, kUntouched},
      {"a NUL byte hiding the rest", minimal + std::string(1, '\0') + "]]]", true, kUntouched},
      {"arrays nested 100000 deep", "{\"MonitorConfig\":" + std::string(100000, '[') +
                                        std::string(100000, ']') + ",\"VedrixConfig\":{}}",
       true, kUntouched},
      {"a file without end", std::nullopt, true, kUntouched, "/dev/zero"},
      {"a directory in its place", std::nullopt, true, kUntouched, "/"},
      {"no MonitorConfig", R"({"VedrixConfig": {"Enabled": true}})", false, kEmpty},
      {"keys are case-sensitive", R"({"monitorConfig": [], "VedrixConfig": {}})", false, kEmpty},
      {"root is an array", R"([{"MonitorConfig": []}])", false, kEmpty},
      {"no VedrixConfig", R"({"MonitorConfig": [{"MetricName": "CpuUsage"}],
                             "vedrixConfig": {"Enabled": true}})", false, kRecordsOnly},
  };
  const std::string path = kSystemPath;
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
    const std::set<std::string> keys[] = {{"Sentinel"}, {}, {"CpuUsage"}};
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
  struct Row {
    const char* property;  // property file contents
    bool systemFile, dataFile;
    const char* loaded;    // metric name loaded; null: fails naming `failing`
    const char* failing;
  };
  const Row rows[] = {
      {"", true, true, "FromSystem", nullptr},
      {"halvex.config.override=false\n", true, true, "FromSystem", nullptr},
      {"halvex.config.override=true\n", true, true, "FromData", nullptr},
      {"halvex.config.override=1\n", true, true, "FromData", nullptr},
      {"halvex.config.override=true\n", true, false, nullptr, kDataPath},  // no fall-back
      {"", false, true, nullptr, kSystemPath},
      {"Halvex.Config.Override=true\n", true, true, "FromSystem", nullptr},
  };
  auto fileWith = [](const std::string& metricName) {
    return R"({"MonitorConfig": [{"MetricName": ")" + metricName + R"("}], "VedrixConfig": {}})";
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.property) + (row.systemFile ? " system" : "") +
                 (row.dataFile ? " data" : ""));
    host.write("properties", row.property);
    std::filesystem::remove(device.path() + kSystemPath);
    std::filesystem::remove(device.path() + kDataPath);
    if (row.systemFile) writeFile(kSystemPath, fileWith("FromSystem"));
    if (row.dataFile) writeFile(kDataPath, fileWith("FromData"));
    logs.clear();
    if (row.loaded != nullptr) {
      EXPECT_EQ(config.parseConfig(kSystemPath), 0);
      EXPECT_EQ(keysOf(config), std::set<std::string>{row.loaded});
      EXPECT_TRUE(logs.records().empty());
    } else {
      EXPECT_EQ(config.parseConfig(kSystemPath), -1);
      EXPECT_EQ(logs.records(), std::vector<LogRecord>{error(std::string("root_json is null ") +
                                                             row.failing +
                                                             ", malformed json file?\n")});
    }
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
  struct Row {
    const char* json;  // the value of "Monitor Name", "Sample_interval_ticks" and "Active"
    const char* name;
    uint64_t ticks;
    bool active;
  };
  const Row rows[] = {
      {"\"cpu\"", "cpu", 0, false},
      {"2", "", 2, false},
      {"-1", "", kMax, false},  // sign-extended, no range check
      {"-2147483648", "", 18446744071562067968ULL, false},
      {"4294967296", "", 2147483647, false},  // the 32-bit payload saturates
      {"7.9", "", 7, false},
      {"true", "", 1, true},
      {"1", "", 1, false},       // only the literal true is true
      {"\"true\"", "true", 0, false},
      {"null", "", 0, false},
      {"[\"cpu\"]", "", 0, false},
  };
  for (const auto& row : rows) {
    HalvexConfig config;
    std::string value = row.json;
    parseText(config, R"({"MonitorConfig": [{"MetricName": "m", "Monitor Name": )" + value +
                          ", \"Sample_interval_ticks\": " + value + ", \"Active\": " + value +
                          R"(}], "VedrixConfig": {}})");
    const auto& record = config.monitorConfigs.at("m");
    EXPECT_EQ(record.name, row.name) << value;
    EXPECT_EQ(record.sampleIntervalTicks, row.ticks) << value;
    EXPECT_EQ(record.active, row.active) << value;
  }
}

TEST(ConfigValuesTest, ContainersOfTheWrongTypeAndRepeatedNames) {
  const std::pair<const char*, std::set<std::string>> rows[] = {
      {R"({"MonitorConfig": "oops", "VedrixConfig": 5})", {}},
      {R"({"MonitorConfig": {"x": {"MetricName": "A"}}, "VedrixConfig": []})", {"A"}},
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
  // A later record of the same metric name replaces the earlier whole.
  HalvexConfig config;
  parseText(config, R"({"MonitorConfig": [
      {"MetricName": "CpuUsage", "Monitor Name": "first", "Active": true,
       "Sample_interval_ticks": 5, "Metric_logcat_interval_ticks": 6},
      {"MetricName": "CpuUsage", "Monitor Name": "second", "Metric_report_interval_ticks": 9}],
    "VedrixConfig": {}})");
  const auto& cpu = config.monitorConfigs.at("CpuUsage");
  EXPECT_EQ(cpu.name, "second");
  EXPECT_FALSE(cpu.active);
  EXPECT_EQ(cpu.sampleIntervalTicks + cpu.metricLogcatIntervalTicks, 0u);
  EXPECT_EQ(cpu.metricReportIntervalTicks, 9u);
}

}  // namespace
}  // namespace halvexd
