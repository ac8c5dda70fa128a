// docs/metrics.md names every metric the daemon writes: the names come from
// the records of every monitor over the sample tablet with every record
// switched on, decoded, so a metric added to a monitor without its line in
// the catalogue fails here.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "config/HalvexConfig.h"
#include "tests/support/TabletReport.h"
#include "tools/common/ConfigFileLoader.h"
#include "tools/common/DaemonPublishNames.h"
#include "tools/decode/MetricRecordParser.h"

namespace halvexd {
namespace {

// Per-process figures are named after the process; the catalogue gives the
// pattern.
const std::set<std::string> kPerProcessNames = {"CpuUsage", "PssKB"};

std::string readCatalogue() {
  std::ifstream in(std::string(HALVEXD_SOURCE_DIR) + "/docs/metrics.md");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every metric name, as the catalogue writes it, by publish name.
std::map<std::string, std::set<std::string>> emittedNames() {
  const auto records = testing::reportEveryMonitorOverTheTablet(testing::tabletConfigPath());
  std::string error;
  EXPECT_TRUE(tools::ConfigFileLoader::load(testing::tabletConfigPath(), error)) << error;
  tools::StructuredRecordAttributor attributor(HalvexConfig::instance());
  tools::MetricRecordParser parser(&attributor);
  std::map<std::string, std::set<std::string>> names;
  for (const auto& record : records) {
    tools::DecodedRecord decoded;
    EXPECT_TRUE(parser.parse(record.message, decoded, error)) << error << ": " << record.message;
    for (const auto& value : decoded.values) {
      names[decoded.publishName].insert(
          kPerProcessNames.count(decoded.publishName) != 0 &&
                  decoded.form != tools::StructuredForm::Fields
              ? "<process name>"
              : value.metric);
    }
  }
  HalvexConfig::instance().resetConfig();
  return names;
}

// The text of each monitor's section ("## ... (`<Monitor>`)"), by monitor.
std::map<std::string, std::string> sectionsByMonitor(const std::string& catalogue) {
  std::map<std::string, std::string> sections;
  std::string monitor;
  std::istringstream lines(catalogue);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind("## ", 0) == 0) {
      size_t open = line.find("(`");
      size_t close = open == std::string::npos ? std::string::npos : line.find("`)", open);
      monitor = close == std::string::npos ? std::string() : line.substr(open + 2, close - open - 2);
    }
    if (!monitor.empty()) sections[monitor] += line + "\n";
  }
  return sections;
}

// The names of `names` the catalogue does not give as `name` in the section
// of a monitor that publishes them, and publish names it does not give as
// "name".
std::vector<std::string> missingFrom(const std::string& catalogue,
                                     const std::map<std::string, std::set<std::string>>& names) {
  const std::map<std::string, std::string> sections = sectionsByMonitor(catalogue);
  std::vector<std::string> missing;
  for (const auto& [publishName, metrics] : names) {
    if (catalogue.find("\"" + publishName + "\"") == std::string::npos) {
      missing.push_back("\"" + publishName + "\"");
    }
    for (const std::string& metric : metrics) {
      bool found = false;
      for (const auto& use : tools::daemonPublishNames()) {
        auto section = sections.find(use.monitor);
        found = found || (use.publishName == publishName && section != sections.end() &&
                          section->second.find("`" + metric + "`") != std::string::npos);
      }
      if (!found) missing.push_back(metric);
    }
  }
  return missing;
}

TEST(MetricCatalogueTest, EveryMetricTheMonitorsWriteIsCatalogued) {
  const auto names = emittedNames();
  // 20 memory figures and 6 kill counts, 15 each for CPU and memory use, 5
  // disk figures with the 2 fields of their records: all of them come out.
  EXPECT_EQ(names.at("SystemMemMonitor").size(), 26u);
  EXPECT_EQ(names.at("CpuUsageMonitor").size(), 15u);
  EXPECT_EQ(names.at("MemoryUsageMonitor").size(), 15u);
  EXPECT_EQ(names.at("PercentageUsed").size(), 7u);

  // Every field the checker's table says a monitor sends is in the
  // catalogue too, and the table covers every field that came out.
  std::map<std::string, std::set<std::string>> tableFields;
  for (const auto& use : tools::daemonPublishNames()) {
    tableFields[use.publishName].insert(use.fields.begin(), use.fields.end());
  }
  auto all = names;
  for (const auto& [publishName, fields] : tableFields) {
    ASSERT_EQ(names.count(publishName), 1u) << publishName << " wrote nothing";
    all[publishName].insert(fields.begin(), fields.end());
    if (publishName.rfind("SysHealth", 0) == 0) {
      EXPECT_EQ(names.at(publishName), fields) << publishName;
    }
  }
  EXPECT_EQ(names.size(), tableFields.size());

  EXPECT_EQ(missingFrom(readCatalogue(), all), std::vector<std::string>{});
}

TEST(MetricCatalogueTest, ANameTakenOutOfTheCatalogueIsMissed) {
  std::string catalogue = readCatalogue();
  const std::map<std::string, std::set<std::string>> names = {
      {"SystemMemMonitor", {"mem_ksm_saving", "lmk_kills_fg"}}, {"PssKB", {"<process name>"}}};
  ASSERT_EQ(missingFrom(catalogue, names), std::vector<std::string>{});
  std::string without = catalogue;
  for (size_t at; (at = without.find("`mem_ksm_saving`")) != std::string::npos;) {
    without.erase(at, std::string("`mem_ksm_saving`").size());
  }
  EXPECT_EQ(missingFrom(without, names), std::vector<std::string>{"mem_ksm_saving"});

  // A name in another monitor's section is missed too: moving the system
  // memory section's heading off its monitor leaves its names in none.
  std::string moved = catalogue;
  const std::string heading = "## System memory monitor (`SystemMemMonitor`)";
  ASSERT_NE(moved.find(heading), std::string::npos);
  moved.replace(moved.find(heading), heading.size(), "## System memory monitor");
  EXPECT_EQ(missingFrom(moved, names), (std::vector<std::string>{"lmk_kills_fg", "mem_ksm_saving"}));
}

}  // namespace
}  // namespace halvexd
