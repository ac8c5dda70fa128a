#include "config/HalvexConfig.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <set>

#include "platform/LogBuffers.h"
#include "tests/support/DaemonProcess.h"
#include "tests/support/TestSupport.h"

namespace halvexd {
namespace {

using testing::DaemonProcess;
using testing::LogCapture;
using testing::LogRecord;
using testing::ScopedEnv;
using testing::ScopedSysroot;
using testing::TempDir;

constexpr const char* kTag = "halvexd";
constexpr const char* kSystemPath = "/system/system_ext/etc/halvex_config.json";
constexpr const char* kDataPath = "/data/halvex/halvex_config.json";
constexpr size_t kMiB = 1024 * 1024;

// A complete small configuration: one record using every key, and the
// structured-service settings.
const char* const kExample = R"({
  "MonitorConfig": [
    { "Monitor Name": "cpu", "MetricName": "CpuUsage", "Active": true,
      "Sample_interval_ticks": 2, "Metric_logcat_interval_ticks": 120,
      "Metric_report_interval_ticks": 120,
      "TRAZ_Metric_Interface": { "ProgramName": "halvexd", "Active": false },
      "Vedrix_Metric_Interface": { "Schema_Id": "s1", "Group_Id": "g1", "Active": true,
        "Metric_Key": { "Name": "key", "DimensionTag": "tag" },
        "Metric_Value": { "Name": "value", "DimensionTag": "tag" },
        "Metrics": [ { "Name": "m1", "Type": "float", "DimensionTag": "tag" } ] } }
  ],
  "VedrixConfig": { "Enabled": true, "Region": "r1", "GroupId": "g0" }
})";

LogRecord info(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_INFO, kTag, message};
}

LogRecord error(const std::string& message) {
  return {kSystemLogBuffer, ANDROID_LOG_ERROR, kTag, message};
}

// The whole summary that loading kExample logs, in order.
const std::vector<LogRecord> kExampleSummary = {
    info("Load JSON config\n\n"),
    info("vedrixConfig.enabled: 1\n"),
    info("default group id: g0\n"),
    info("region: r1\n"),
    info("==============================\n"),
    info("config.name cpu\n"),
    info("config.metricName CpuUsage\n"),
    info("config.active 1\n"),
    info("sampleIntervalTicks 2\n"),
    info("metricLogcatIntervalTicks 120\n"),
    info("metricReportIntervalTicks 120\n"),
    info("trazMetricInterface.active 0\n"),
    info("programName halvexd\n"),
    info("vedrixMetricInterface.active 1\n"),
    info("schema id s1\n"),
    info("group id g1\n"),
    info("name key\n"),
    info("dimensionTag tag\n"),
    info("name value\n"),
    info("dimensionTag tag\n"),
    info("Load JSON config done\n"),
};

// Parses inline JSON text and fills `config` from it.
int parseText(HalvexConfig& config, const std::string& text) {
  cJSON* root = cJSON_Parse(text.c_str());
  EXPECT_NE(root, nullptr) << "test input is not JSON: " << text;
  int result = config.parseJsonData(root);
  cJSON_Delete(root);
  return result;
}

std::set<std::string> keysOf(const HalvexConfig& config) {
  std::set<std::string> keys;
  for (const auto& entry : config.monitorConfigs) keys.insert(entry.first);
  return keys;
}

// Reports which files of the watched directories were opened, so a test can
// prove a path was never opened (not merely that its contents went unused).
class OpenWatch {
 public:
  explicit OpenWatch(const std::vector<std::string>& directories) {
    fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    EXPECT_GE(fd, 0);
    for (const auto& directory : directories) {
      int wd = inotify_add_watch(fd, directory.c_str(), IN_OPEN);
      EXPECT_GE(wd, 0) << directory;
      watched[wd] = directory;
    }
  }
  ~OpenWatch() { close(fd); }

  std::set<std::string> opened() {
    alignas(inotify_event) char buffer[8192];
    ssize_t length;
    while ((length = read(fd, buffer, sizeof(buffer))) > 0) {
      for (char* p = buffer; p < buffer + length;) {
        auto* event = reinterpret_cast<inotify_event*>(p);
        if (event->len > 0) seen.insert(watched[event->wd] + "/" + event->name);
        p += sizeof(inotify_event) + event->len;
      }
    }
    return seen;
  }

 private:
  int fd = -1;
  std::map<int, std::string> watched;
  std::set<std::string> seen;
};

class ConfigFileTest : public ::testing::Test {
 protected:
  void writeDevice(const char* devicePath, const std::string& contents) {
    device.write(devicePath + 1, contents);
  }
  std::string onHost(const char* devicePath) const { return device.path() + devicePath; }

  TempDir device;
  TempDir host;
  ScopedSysroot sysroot{device.path()};
  ScopedEnv properties{"HALVEXD_PROPERTIES", host.path() + "/properties"};
  HalvexConfig config;
  LogCapture logs;
};

TEST_F(ConfigFileTest, ExampleFillsEveryField) {
  writeDevice(kSystemPath, kExample);
  ASSERT_TRUE(config.loadConfig(kSystemPath));

  EXPECT_TRUE(config.vedrixConfig.enabled);
  EXPECT_EQ(config.vedrixConfig.region, "r1");
  EXPECT_EQ(config.vedrixConfig.defaultGroupId, "g0");
  ASSERT_EQ(keysOf(config), std::set<std::string>{"CpuUsage"});
  const HalvexConfig::MonitorConfig& cpu = config.monitorConfigs.at("CpuUsage");
  EXPECT_EQ(cpu.name, "cpu");
  EXPECT_EQ(cpu.metricName, "CpuUsage");
  EXPECT_TRUE(cpu.active);
  EXPECT_EQ(cpu.sampleIntervalTicks, 2u);
  EXPECT_EQ(cpu.metricLogcatIntervalTicks, 120u);
  EXPECT_EQ(cpu.metricReportIntervalTicks, 120u);
  EXPECT_EQ(cpu.trazMetricInterface.programName, "halvexd");
  EXPECT_FALSE(cpu.trazMetricInterface.active);
  const HalvexConfig::VedrixMetricInterface& vedrix = cpu.vedrixMetricInterface;
  EXPECT_EQ(vedrix.schemaId, "s1");
  EXPECT_EQ(vedrix.groupId, "g1");
  EXPECT_TRUE(vedrix.active);
  EXPECT_EQ(vedrix.metricKey.name, "key");
  EXPECT_EQ(vedrix.metricKey.dimensionTag, "tag");
  EXPECT_EQ(vedrix.metricValue.name, "value");
  EXPECT_EQ(vedrix.metricValue.dimensionTag, "tag");
  ASSERT_EQ(vedrix.metrics.size(), 1u);
  EXPECT_EQ(vedrix.metrics[0].name, "m1");
  EXPECT_EQ(vedrix.metrics[0].type, "float");
  EXPECT_EQ(vedrix.metrics[0].dimensionTag, "tag");
  EXPECT_EQ(logs.records(), kExampleSummary);
}

TEST_F(ConfigFileTest, FailuresLogTheirLinesAndLeaveTheModelAsReadSoFar) {
  enum class Model { kUntouched, kEmpty, kRecordsOnly };
  struct Case {
    const char* why;
    std::optional<std::string> file;
    std::string firstError;
    Model model;
  };
  const std::string rootNull =
      "root_json is null /system/system_ext/etc/halvex_config.json, malformed json file?\n";
  const std::string notParsed =
      "Opening of /system/system_ext/etc/halvex_config.json failed, could not parse json\n";
  const std::string minimal = R"({"MonitorConfig": [], "VedrixConfig": {}})";
  const std::string justAboveBound = minimal + std::string(kMiB + 1 - minimal.size(), ' ');
  const Case cases[] = {
      {"no file", std::nullopt, rootNull, Model::kUntouched},
      {"empty file", std::string(), rootNull, Model::kUntouched},
      {"cut short", std::string(kExample).substr(0, 100), rootNull, Model::kUntouched},
      {"garbage after the value", std::string(kExample) + " x", rootNull, Model::kUntouched},
      {"a second value", std::string(kExample) + "\n{}", rootNull, Model::kUntouched},
      {"NUL byte hiding the rest", minimal + std::string(1, '\0') + "]]]", rootNull,
       Model::kUntouched},
      {"valid but one byte above 1 MiB", justAboveBound, rootNull, Model::kUntouched},
      {"no MonitorConfig", R"({"VedrixConfig": {"Enabled": true}})", notParsed, Model::kEmpty},
      {"keys are case-sensitive", R"({"monitorConfig": [], "VedrixConfig": {}})", notParsed,
       Model::kEmpty},
      {"root is an array", "[{\"MonitorConfig\": []}]", notParsed, Model::kEmpty},
      {"no VedrixConfig", R"({"MonitorConfig": [{"MetricName": "CpuUsage"}]})", notParsed,
       Model::kRecordsOnly},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    std::filesystem::remove(onHost(kSystemPath));
    if (c.file) writeDevice(kSystemPath, *c.file);
    config.resetConfig();
    config.monitorConfigs["Sentinel"].name = "left from before";
    config.vedrixConfig = {true, "r", "g"};
    logs.clear();

    EXPECT_FALSE(config.loadConfig(kSystemPath));

    EXPECT_EQ(logs.records(), (std::vector<LogRecord>{info("Load JSON config\n\n"),
                                                      error(c.firstError),
                                                      error("Could not parse config file\n"),
                                                      info("Load JSON config done\n")}));
    switch (c.model) {
      case Model::kUntouched:
        EXPECT_EQ(keysOf(config), std::set<std::string>{"Sentinel"});
        EXPECT_TRUE(config.vedrixConfig.enabled);
        EXPECT_EQ(config.vedrixConfig.region, "r");
        EXPECT_EQ(config.vedrixConfig.defaultGroupId, "g");
        break;
      case Model::kEmpty:
      case Model::kRecordsOnly:
        EXPECT_EQ(keysOf(config), c.model == Model::kEmpty ? std::set<std::string>{}
                                                           : std::set<std::string>{"CpuUsage"});
        EXPECT_FALSE(config.vedrixConfig.enabled);
        EXPECT_EQ(config.vedrixConfig.region, "");
        EXPECT_EQ(config.vedrixConfig.defaultGroupId, "");
        break;
    }
  }
}

TEST_F(ConfigFileTest, FileOfExactlyTheSizeBoundLoads) {
  const std::string minimal = R"({"MonitorConfig": [], "VedrixConfig": {"Enabled": true}})";
  writeDevice(kSystemPath, minimal + std::string(kMiB - minimal.size(), '\n'));
  EXPECT_TRUE(config.loadConfig(kSystemPath));
  EXPECT_TRUE(config.vedrixConfig.enabled);
}

TEST_F(ConfigFileTest, OverridePropertyChoosesTheOnlyFileOpened) {
  struct Case {
    const char* why;
    const char* property;  // contents of the property file
    bool systemFile;
    bool dataFile;
    std::optional<std::string> loaded;  // metric name loaded, or failure
    const char* failingPath;
    const char* neverOpened;
  };
  const Case cases[] = {
      {"unset: system file", "", true, true, "FromSystem", nullptr, kDataPath},
      {"false: system file", "halvex.config.override=false\n", true, true, "FromSystem", nullptr,
       kDataPath},
      {"true: override file", "halvex.config.override=true\n", true, true, "FromData", nullptr,
       kSystemPath},
      {"true: no fall-back to the system file", "halvex.config.override=true\n", true, false,
       std::nullopt, kDataPath, kSystemPath},
      {"unset: no fall-back to the override file", "", false, true, std::nullopt, kSystemPath,
       kDataPath},
  };
  auto fileWith = [](const char* metricName) {
    return std::string(R"({"MonitorConfig": [{"MetricName": ")") + metricName +
           R"("}], "VedrixConfig": {}})";
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    host.write("properties", c.property);
    std::filesystem::remove(onHost(kSystemPath));
    std::filesystem::remove(onHost(kDataPath));
    std::filesystem::create_directories(onHost("/system/system_ext/etc"));
    std::filesystem::create_directories(onHost("/data/halvex"));
    if (c.systemFile) writeDevice(kSystemPath, fileWith("FromSystem"));
    if (c.dataFile) writeDevice(kDataPath, fileWith("FromData"));
    logs.clear();
    OpenWatch watch({onHost("/system/system_ext/etc"), onHost("/data/halvex")});

    int result = config.parseConfig(kSystemPath);

    if (c.loaded) {
      EXPECT_EQ(result, 0);
      EXPECT_EQ(keysOf(config), std::set<std::string>{*c.loaded});
      EXPECT_TRUE(logs.records().empty());
    } else {
      EXPECT_EQ(result, -1);
      EXPECT_EQ(logs.records(),
                std::vector<LogRecord>{error(std::string("root_json is null ") + c.failingPath +
                                             ", malformed json file?\n")});
    }
    EXPECT_EQ(watch.opened().count(onHost(c.neverOpened)), 0u);
  }
}

// The configuration shipped with the fixture tablet: every publish name of
// the daemon has a record.
TEST(ConfigFixtureTest, TabletConfigurationLoads) {
  ScopedSysroot sysroot(testing::fixturePath("tablet"));
  ScopedEnv properties("HALVEXD_PROPERTIES", "");
  LogCapture logs;
  HalvexConfig config;
  ASSERT_TRUE(config.loadConfig(kSystemPath));
  EXPECT_TRUE(config.vedrixConfig.enabled);
  EXPECT_EQ(keysOf(config),
            (std::set<std::string>{"CpuUsageMonitor", "SysHealthCpuUsage", "MemoryUsageMonitor",
                                   "SysHealthMemoryUsage", "SystemMemMonitor", "PercentageUsed",
                                   "SysHealthStorageUsage", "CpuUsage", "PssKB"}));
  // A system-health name gives structured records only with its plain
  // interface off.
  EXPECT_FALSE(config.monitorConfigs.at("SysHealthCpuUsage").trazMetricInterface.active);
  EXPECT_EQ(config.monitorConfigs.at("SysHealthCpuUsage").vedrixMetricInterface.metrics.size(),
            5u);
}

TEST(ConfigParseTest, ScalarKeysAreReadThroughTheirTypeAccessor) {
  constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
  struct Case {
    const char* json;  // value of the key in the record
    std::string name;  // "Monitor Name"
    uint64_t ticks;    // "Sample_interval_ticks"
    bool active;       // "Active"
    const char* why;
  };
  const Case cases[] = {
      {"\"cpu\"", "cpu", 0, false, "a string reads as itself, as 0 and as false"},
      {"\"\"", "", 0, false, "empty string"},
      {"2", "", 2, false, "an integer; a non-string reads as the empty string"},
      {"-1", "", kMax, false, "negative ticks sign-extend without a range check"},
      {"-2147483648", "", 18446744071562067968ULL, false, "lowest 32-bit value sign-extends"},
      {"2147483647", "", 2147483647, false, "highest 32-bit value"},
      {"4294967296", "", 2147483647, false, "beyond 32 bits saturates in the integer payload"},
      {"7.9", "", 7, false, "a fraction is dropped"},
      {"true", "", 1, true, "only the literal true is true"},
      {"false", "", 0, false, "false"},
      {"1", "", 1, false, "the number 1 is not true"},
      {"\"true\"", "true", 0, false, "the string true is not true"},
      {"null", "", 0, false, "null"},
      {"{\"a\": 1}", "", 0, false, "an object"},
      {"[\"cpu\"]", "", 0, false, "an array"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    HalvexConfig config;
    std::string value = c.json;
    ASSERT_EQ(parseText(config, R"({"MonitorConfig": [{"MetricName": "m", "Monitor Name": )" +
                                        value + ", \"Sample_interval_ticks\": " + value +
                                        ", \"Active\": " + value + R"(}], "VedrixConfig": {}})"),
              0);
    const HalvexConfig::MonitorConfig& record = config.monitorConfigs.at("m");
    EXPECT_EQ(record.name, c.name);
    EXPECT_EQ(record.sampleIntervalTicks, c.ticks);
    EXPECT_EQ(record.active, c.active);
  }
}

TEST(ConfigParseTest, ContainersOfTheWrongTypeDoNotFailTheFile) {
  struct Case {
    const char* json;
    std::set<std::string> keys;
    bool enabled;
    const char* why;
  };
  const Case cases[] = {
      {R"({"MonitorConfig": [], "VedrixConfig": {"Enabled": true}})", {}, true,
       "an empty array loads an empty map"},
      {R"({"MonitorConfig": "oops", "VedrixConfig": {}})", {}, false, "a string has no records"},
      {R"({"MonitorConfig": null, "VedrixConfig": {}})", {}, false, "null has no records"},
      {R"({"MonitorConfig": {"x": {"MetricName": "A"}}, "VedrixConfig": {}})", {"A"}, false,
       "an object is walked member by member"},
      {R"({"MonitorConfig": [null, {"MetricName": "A"}, null], "VedrixConfig": {}})", {"A"}, false,
       "null elements are skipped, not stored as empty records"},
      {R"({"MonitorConfig": [7, "x"], "VedrixConfig": 5})", {""}, false,
       "scalar elements are records without keys; a scalar VedrixConfig has no settings"},
      {R"({"MonitorConfig": [{"MetricName": "A", "TRAZ_Metric_Interface": "x",
           "Vedrix_Metric_Interface": [1, {"Name": "n"}]}], "VedrixConfig": []})",
       {"A"}, false, "nested interfaces of the wrong type"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    HalvexConfig config;
    EXPECT_EQ(parseText(config, c.json), 0);
    EXPECT_EQ(keysOf(config), c.keys);
    EXPECT_EQ(config.vedrixConfig.enabled, c.enabled);
  }
}

TEST(ConfigParseTest, LaterRecordWithTheSameMetricNameReplacesTheEarlierWhole) {
  HalvexConfig config;
  ASSERT_EQ(parseText(config, R"({"MonitorConfig": [
      {"MetricName": "CpuUsage", "Monitor Name": "first", "Active": true,
       "Sample_interval_ticks": 5, "TRAZ_Metric_Interface": {"ProgramName": "p"},
       "Vedrix_Metric_Interface": {"Metrics": [{"Name": "a"}]}},
      {"MetricName": "CpuUsage", "Monitor Name": "second", "Metric_report_interval_ticks": 9},
      {"Monitor Name": "unnamed1"}, {"Monitor Name": "unnamed2"}],
    "VedrixConfig": {}})"),
            0);
  ASSERT_EQ(keysOf(config), (std::set<std::string>{"", "CpuUsage"}));
  const auto& cpu = config.monitorConfigs.at("CpuUsage");
  EXPECT_EQ(cpu.name, "second");
  EXPECT_EQ(cpu.metricReportIntervalTicks, 9u);
  EXPECT_FALSE(cpu.active) << "fields are not merged from the first record";
  EXPECT_EQ(cpu.sampleIntervalTicks, 0u);
  EXPECT_EQ(cpu.trazMetricInterface.programName, "");
  EXPECT_TRUE(cpu.vedrixMetricInterface.metrics.empty());
  EXPECT_EQ(config.monitorConfigs.at("").name, "unnamed2");
}

TEST(ConfigParseTest, VedrixDescriptorsKeepOrderAndKeyMetricsHaveNoType) {
  HalvexConfig config;
  ASSERT_EQ(parseText(config, R"({"MonitorConfig": [{"MetricName": "m",
      "Vedrix_Metric_Interface": {
        "Metric_Key": {"Type": "str", "DimensionTag": "K", "Name": "key"},
        "Metric_Value": {"Name": "value", "Type": "int"},
        "Metrics": [{"DimensionTag": "B", "Type": "int", "Name": "b"}, null,
                    {"Name": "a"}, {"Name": "b", "Type": "str"}]}}],
    "VedrixConfig": {}})"),
            0);
  const auto& vedrix = config.monitorConfigs.at("m").vedrixMetricInterface;
  EXPECT_EQ(vedrix.metricKey.name, "key");
  EXPECT_EQ(vedrix.metricKey.dimensionTag, "K");
  EXPECT_EQ(vedrix.metricKey.type, "");
  EXPECT_EQ(vedrix.metricValue.type, "");
  EXPECT_EQ(vedrix.metricValue.dimensionTag, "");
  ASSERT_EQ(vedrix.metrics.size(), 3u);
  EXPECT_EQ(vedrix.metrics[0].name, "b");
  EXPECT_EQ(vedrix.metrics[0].type, "int");
  EXPECT_EQ(vedrix.metrics[0].dimensionTag, "B");
  EXPECT_EQ(vedrix.metrics[1].name, "a");
  EXPECT_EQ(vedrix.metrics[1].type, "");
  EXPECT_EQ(vedrix.metrics[2].type, "str");
}

TEST_F(ConfigFileTest, SummaryHasOneBlockPerMapEntry) {
  writeDevice(kSystemPath, R"({"MonitorConfig": [
      {"MetricName": "A", "Sample_interval_ticks": 1},
      {"MetricName": "B", "Sample_interval_ticks": -1, "Active": true},
      {"MetricName": "A", "Sample_interval_ticks": 3}],
    "VedrixConfig": {}})");
  ASSERT_TRUE(config.loadConfig(kSystemPath));

  auto block = [](const std::string& metricName, const std::string& ticks, int active) {
    std::vector<LogRecord> lines = {info("==============================\n"),
                                    info("config.name \n"),
                                    info("config.metricName " + metricName + "\n"),
                                    info("config.active " + std::to_string(active) + "\n"),
                                    info("sampleIntervalTicks " + ticks + "\n"),
                                    info("metricLogcatIntervalTicks 0\n"),
                                    info("metricReportIntervalTicks 0\n"),
                                    info("trazMetricInterface.active 0\n"),
                                    info("programName \n"),
                                    info("vedrixMetricInterface.active 0\n"),
                                    info("schema id \n"),
                                    info("group id \n")};
    for (int i = 0; i < 2; ++i) {
      lines.push_back(info("name \n"));
      lines.push_back(info("dimensionTag \n"));
    }
    return lines;
  };
  std::vector<LogRecord> head = {info("Load JSON config\n\n"), info("vedrixConfig.enabled: 0\n"),
                                 info("default group id: \n"), info("region: \n")};
  auto a = block("A", "3", 0);
  auto b = block("B", "18446744073709551615", 1);
  // The map's order is not fixed; either order of the two blocks is right.
  std::vector<LogRecord> aFirst = head, bFirst = head;
  aFirst.insert(aFirst.end(), a.begin(), a.end());
  aFirst.insert(aFirst.end(), b.begin(), b.end());
  bFirst.insert(bFirst.end(), b.begin(), b.end());
  bFirst.insert(bFirst.end(), a.begin(), a.end());
  aFirst.push_back(info("Load JSON config done\n"));
  bFirst.push_back(info("Load JSON config done\n"));
  EXPECT_TRUE(logs.records() == aFirst || logs.records() == bFirst)
      << ::testing::PrintToString(logs.records());
}

// The real binary, started as on a device: it reads the system file through
// the sysroot and logs the summary before the engine starts.
TEST(ConfigDaemonTest, DaemonLogsTheSummaryThenStopsOnSigterm) {
  TempDir device;
  TempDir scratch;
  device.write("proc/uptime", "200.43 1523.11\n");
  device.write("system/system_ext/etc/halvex_config.json", kExample);
  DaemonProcess daemon({}, {{"HALVEXD_SYSROOT", device.path()}}, scratch.path() + "/log.jsonl");
  ASSERT_GT(daemon.pid(), 0);
  ASSERT_TRUE(daemon.waitForRecord([](const LogRecord& record) {
    return record.tag == "halvexd:MonitorEngine" && record.message.rfind("Current Uptime=", 0) == 0;
  }));
  kill(daemon.pid(), SIGTERM);
  int status = daemon.waitForExit();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);

  std::vector<LogRecord> records = daemon.records();
  std::vector<LogRecord> summary;
  bool inSummary = false;
  for (const auto& record : records) {
    if (record.tag != kTag) continue;
    inSummary = inSummary || record.message == "Load JSON config\n\n";
    if (!inSummary) continue;
    summary.push_back(record);
    if (record.message == "Load JSON config done\n") break;
  }
  EXPECT_EQ(summary, kExampleSummary);
  auto signalLine = std::find(records.begin(), records.end(),
                              LogRecord{kSystemLogBuffer, ANDROID_LOG_INFO,
                                        "halvexd:MonitorEngine", "Received signal 15"});
  EXPECT_NE(signalLine, records.end());
  EXPECT_EQ(records.back(), info("Exiting"));
}

}  // namespace
}  // namespace halvexd
