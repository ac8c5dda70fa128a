// Every record the monitors write over the sample tablet, in every log form
// the decoder reads, decodes to exactly the values it carried: put back
// together from the decoded pieces, each record is the record written, the
// structured values equal their plain twins, and the figures the tablet's
// files hold come out unchanged.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <sstream>

#include "config/HalvexConfig.h"
#include "platform/host/HostLog.h"
#include "tests/support/MetricRecords.h"
#include "tests/support/TabletReport.h"
#include "tools/common/ConfigFileLoader.h"
#include "tools/common/DaemonPublishNames.h"
#include "tools/decode/RecordDecoder.h"

namespace halvexd {
namespace {

using testing::LogRecord;

struct Decoded {
  std::map<std::string, std::string> columns;
  const std::string& operator[](const std::string& key) const { return columns.at(key); }
};

// The decoder's JSON lines, grouped by the input line they came from.
std::map<size_t, std::vector<Decoded>> parseOutput(const std::string& output) {
  std::map<size_t, std::vector<Decoded>> byLine;
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    cJSON* root = cJSON_Parse(line.c_str());
    EXPECT_NE(root, nullptr) << line;
    if (root == nullptr) continue;
    Decoded decoded;
    size_t number = 0;
    for (cJSON* item = root->child; item != nullptr; item = item->next) {
      if (cJSON_IsNumber(item)) {
        number = static_cast<size_t>(item->valuedouble);
      } else {
        decoded.columns[item->string] = item->valuestring;
      }
    }
    byLine[number].push_back(decoded);
    cJSON_Delete(root);
  }
  return byLine;
}

// The record text the decoded pieces of one record stand for.
std::string reassemble(const std::vector<Decoded>& values) {
  const Decoded& first = values.front();
  if (first["kind"] == "plain") {
    std::string entries;
    for (const Decoded& v : values) {
      entries += (entries.empty() ? "" : ",") + v["metric"] + "=" + v["value"] + ";" + v["type"] + ";1";
    }
    return first["prefix"] + ":" + first["publish"] + ":" + entries + ":NR";
  }
  std::string body;
  for (const Decoded& v : values) {
    std::string type = v["type"].empty() ? "" : ";" + v["type"];
    if (first["form"] == "single") {
      body += v["key_tag"] + "=" + v["metric"] + ";SY," + v["value_tag"] + "=" + v["value"] + type;
    } else {
      body += (body.empty() ? "" : ",") + v["value_tag"] + "=" + v["value"] + type;
    }
  }
  std::string region = first["region"].empty() ? "" : ":" + first["region"];
  return first["group"] + ":" + first["schema"] + ":100:" + body + testing::kDeviceTail + region;
}

struct LogForm {
  const char* name;
  // The text of one record in this form.
  std::function<std::string(const LogRecord&)> render;
};

const LogForm kForms[] = {
    {"host jsonl", [](const LogRecord& r) { return hostlog::formatJsonLine(r); }},
    {"host text", [](const LogRecord& r) { return hostlog::formatTextLines(r, 1795300000123, 4711); }},
    {"logcat threadtime",
     [](const LogRecord& r) { return "11-23 03:27:03.123  4711  4718 I " + r.tag + ": " + r.message + "\n"; }},
    {"logcat brief", [](const LogRecord& r) { return "I/" + r.tag + "( 4711): " + r.message + "\n"; }},
};

TEST(RecordRoundTripTest, EveryRecordOfTheTabletDecodesToTheValuesItCarried) {
  const std::vector<LogRecord> records =
      testing::reportEveryMonitorOverTheTablet(testing::tabletConfigPath());
  ASSERT_EQ(records.size(), 93u) << "the tablet's report changed: recount the records";

  std::string error;
  ASSERT_TRUE(tools::ConfigFileLoader::load(testing::tabletConfigPath(), error)) << error;
  tools::StructuredRecordAttributor attributor(HalvexConfig::instance());
  tools::MetricRecordParser parser(&attributor);

  std::set<std::string> publishNames;
  for (const auto& use : tools::daemonPublishNames()) publishNames.insert(use.publishName);

  for (const LogForm& form : kForms) {
    SCOPED_TRACE(form.name);
    // As `logcat -b all` shows it: buffer separators and other tags between
    // the records.
    std::string log = "--------- beginning of main\n";
    const LogRecord status{3, 4, "halvexd:MonitorEngine", "Running SystemMemMonitor"};
    std::vector<size_t> lineOfRecord;
    size_t line = 1;
    for (const LogRecord& record : records) {
      log += form.render(status) + "--------- beginning of metrics\n";
      line += 2;
      log += form.render(record);
      lineOfRecord.push_back(++line);
    }
    std::istringstream in(log);
    std::ostringstream out, err;
    tools::RecordDecoder decoder(tools::RecordDecoder::Mode::JsonLines, parser);
    EXPECT_EQ(decoder.run(in, out, err), 0);
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(decoder.counts().records, records.size());
    auto byLine = parseOutput(out.str());
    ASSERT_EQ(byLine.size(), records.size());

    std::map<std::string, std::map<std::string, std::string>> plainValues, structuredValues;
    for (size_t i = 0; i < records.size(); ++i) {
      const auto& values = byLine[lineOfRecord[i]];
      ASSERT_FALSE(values.empty()) << records[i].message;
      EXPECT_EQ(reassemble(values), records[i].message);
      for (const Decoded& v : values) {
        EXPECT_EQ(publishNames.count(v["publish"]), 1u) << "not attributed: " << records[i].message;
        auto& into = v["kind"] == "plain" ? plainValues : structuredValues;
        if (v["form"] == "fields" && v["metric"] == "percent_used") {
          into[v["publish"]][values.front()["value"]] = v["value"];
        } else if (v["form"] != "fields") {
          into[v["publish"]][v["metric"]] = v["value"];
        }
      }
    }

    // Each structured value was emitted together with its plain twin.
    for (const char* name :
         {"CpuUsage", "PssKB", "SystemMemMonitor", "CpuUsageMonitor", "MemoryUsageMonitor",
          "PercentageUsed"}) {
      EXPECT_EQ(structuredValues[name], plainValues[name]) << name;
      EXPECT_FALSE(plainValues[name].empty()) << name;
    }
    // Figures straight from the tablet's files and its /proc/perfinfo.
    auto& memory = plainValues["SystemMemMonitor"];
    EXPECT_EQ(memory["mem_total"], "3866624");
    EXPECT_EQ(memory["mem_free"], "148736");
    EXPECT_EQ(memory["mem_available"], "1795672");
    EXPECT_EQ(memory["zram_mem_used_kb"], "218196");
    EXPECT_EQ(memory["lmk_kills_persistent"], "0");
    EXPECT_EQ(memory["lmk_kills_backup"], "41");
    EXPECT_EQ(memory["lmk_kills_other"], "268");
    EXPECT_EQ(plainValues["PssKB"]["system_server"], "187432");
    EXPECT_EQ(plainValues["PssKB"]["surfaceflinger"], "40960");
    EXPECT_EQ(plainValues["PssKB"]["re.sensors@2.0-service.multihal"], "0");
    // One sample of the tablet's 53.56 % memory use, at the report.
    EXPECT_EQ(plainValues["MemoryUsageMonitor"]["MemoryUtilization.B50-59"], "1");
    EXPECT_EQ(plainValues["MemoryUsageMonitor"]["MemoryUtilization.P100"], "55");
  }
  HalvexConfig::instance().resetConfig();
}

}  // namespace
}  // namespace halvexd
