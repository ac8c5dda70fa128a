// The two tools for the people who read the records: halvex-decode over a
// committed log in every form it reads, the reason it gives for each record
// the daemon cannot have written, and halvex-config-check's whole report for
// each committed configuration, with the exit statuses of both.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "config/HalvexConfig.h"
#include "tests/support/TestSupport.h"
#include "tools/configcheck/ConfigCheckCommand.h"
#include "tools/decode/DecodeCommand.h"
#include "tools/decode/DecodedValueWriter.h"

namespace halvexd {
namespace {

using testing::fixturePath;

const std::string kTail =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY";
const std::string kTabletConfig = fixturePath("tablet/system/system_ext/etc/halvex_config.json");

struct ToolRun { int status; std::string out, err; };

ToolRun decode(const std::vector<std::string>& args, const std::string& input = "") {
  std::istringstream in(input);
  std::ostringstream out, err;
  int status = tools::runDecode(args, in, -1, out, err);
  HalvexConfig::instance().resetConfig();
  return {status, out.str(), err.str()};
}

ToolRun configCheck(const std::vector<std::string>& args) {
  std::ostringstream out, err;
  int status = tools::runConfigCheck(args, out, err);
  HalvexConfig::instance().resetConfig();
  return {status, out.str(), err.str()};
}

std::string contents(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(RecordToolsTest, DecodesACommittedLogInEveryFormAndNamesItsMalformedRecord) {
  // Records of the tablet's golden run as threadtime, jsonl, host text and
  // brief lines, among other tags, and one malformed record on line 11.
  const std::string log = fixturePath("decode/forms.log");
  ToolRun csv = decode({"--csv", "--config", kTabletConfig, log});
  EXPECT_EQ(csv.status, 1);
  EXPECT_EQ(csv.out, contents(fixturePath("decode/forms.csv")));
  EXPECT_EQ(csv.err, "line 11: ',' after the last entry\n");
  ToolRun check = decode({"--check", "--config", kTabletConfig, log});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "line 11: ',' after the last entry\n8 metric records checked, 1 malformed\n");
}

TEST(RecordToolsTest, CheckGivesTheReasonForEachRecordTheDaemonCannotHaveWritten) {
  const std::string single = "hx_tablet:hx_sysmem_v1:100:metric=m;SY,value=";
  const std::string notUnsigned = "single value \"m\": \";IN\" value \"";
  const std::pair<std::string, std::string> rows[] = {
      {"XTablet:P:a;b=1;CT;1:NR", "entry 1: metric name \"a;b\" holds ';'"},
      {"XTablet:P:a:b=1;CT;1:NR", "':' inside the entries (metric names are written without it)"},
      {"XTablet:P:a=1;CT;1",
       "neither a plain record (ending in \":NR\") nor a structured record (ending in the device "
       "fields)"},
      {"X:P:a=1;CT;1:NR", "record prefix \"X\" does not end in the device suffix \"Tablet\""},
      {"XTablet:P:a=1;CT;1,b=2:NR", "entry 2 \"b=2\" does not end in \";CT;1\""},
      {"XTablet:P:a=12 kB;CT;1:NR", "entry 1 (a): value \"12 kB\" is not a number"},
      {"XTablet:P:a=007;CT;1:NR", "entry 1 (a): value \"007\" is not a number"},
      {"XTablet:P:a=1;CT;1b=2;CT;1:NR", "entry 1 (a) is followed by \"b=2;CT;1\" instead of ','"},
      {"g:s:100:A=1;IN" + kTail + "eu",
       "text \"eu\" after the device fields (only \":<region>\" may follow)"},
      {"g:s:100:" + kTail, "structured record with an empty body"},
      {"g:s:100:A=1;IN,_softwareVersion=;SY:eu",
       "structured record whose device fields are incomplete or out of order"},
      {"g:s:metric=m;SY,value=1;IN" + kTail,
       "structured record without the header \"<group>:<schema>:100:\""},
      {single + "1;SY" + kTail,
       "single value \"m\" has the type tag \";SY\" (the daemon writes \";IN\" or \";FL\")"},
      {single + "+1;IN" + kTail,
       notUnsigned + "+1\" is not an unsigned decimal as the daemon writes it"},
      {single + "18446744073709551616;IN" + kTail,
       notUnsigned + "18446744073709551616\" is not an unsigned decimal as the daemon writes it"},
      {single + "1.0;FL" + kTail,
       "single value \"m\": \";FL\" value \"1.0\" is not a double as the daemon writes it (six "
       "significant digits, shortest form)"},
      {"hx_tablet:hx_disk_v1:100:percentUsed=1;IN,partition=/x;SY" + kTail,
       "body \"percentUsed=1;IN,partition=/x;SY\" does not fit the descriptors of \"PercentageUsed\" "
       "(FIELDs \"<tag>=<value><type tag>\" in descriptor order)"},
  };
  for (const auto& [record, reason] : rows) {
    ToolRun check = decode({"--check", "--config", kTabletConfig},
                       "11-23 03:27:03.123  4711  4711 I metrics.halvexd: " + record + "\n");
    EXPECT_EQ(check.status, 1) << record;
    EXPECT_EQ(check.out, "line 1: " + reason + "\n1 metric records checked, 1 malformed\n");
  }
  // What the daemon does write passes: largest integer, %g doubles, nan.
  ToolRun good = decode({"--check", "--config", kTabletConfig},
                    "I/metrics.halvexd( 1): " + single + "18446744073709551615;IN" + kTail + "\n" +
                        "I/metrics.halvexd( 1): " + single + "1.23457e+06;FL" + kTail + ":eu\n" +
                        "I/metrics.halvexd( 1): XTablet:P:a=-nan;CT;1,b=1e-05;CT;1:NR\n");
  EXPECT_EQ(good.status, 0);
  EXPECT_EQ(good.out, "3 metric records checked, 0 malformed\n");
}

TEST(RecordToolsTest, EveryByteOfAValueComesBackAndLinesPastOneMiBArePassedOver) {
  // JSON: valid UTF-8 as it is; each byte of an invalid sequence as U+DC00 +
  // byte, which no character is; control bytes, quotes, backslashes escaped.
  const std::pair<std::string, std::string> rows[] = {  // value, its JSON string's text
      {"a\xff" "b", "a\\udcffb"},  {"a\xc3\xbf" "b", "a\xc3\xbf" "b"},
      {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},  {"\xe2\x82x", "\\udce2\\udc82x"},
      {"\xed\xa0\x80", "\\udced\\udca0\\udc80"},  {"\xc0\xaf", "\\udcc0\\udcaf"},
      {"\xe0\x80\xaf", "\\udce0\\udc80\\udcaf"},  {"\x01\x7f\"\\", "\\u0001\\u007f\\\"\\\\"},
      {"\xf4\x90\x80\x80", "\\udcf4\\udc90\\udc80\\udc80"},
  };
  for (const auto& [value, text] : rows) {
    EXPECT_EQ(tools::DecodedValueWriter::jsonString(value), '"' + text + '"') << text;
  }
  EXPECT_EQ(tools::DecodedValueWriter::csvField("a\xff" "b"), "a\xff" "b");  // CSV: the bytes
  // A line of exactly 1 MiB is read; one byte more is passed over, named,
  // and fails the run; the lines after it are read.
  auto line = [](const std::string& m) {
    return "I/metrics.halvexd( 1): XTablet:P:" + m + "=1;CT;1:NR\n";
  };
  const std::string longest(1024 * 1024 - line("").size() + 1, 'm');
  ToolRun bound = decode({}, line(longest) + line(longest + "m") + line("after"));
  EXPECT_EQ(bound.status, 1);
  EXPECT_EQ(bound.err, "line 2: longer than 1048576 bytes, not read\n");
  const std::string first = R"({"line":1,"kind":"plain","form":"","prefix":"XTablet",)"
                            R"("publish":"P","metric":")" + longest + R"(","value":"1")";
  EXPECT_EQ(bound.out.substr(0, first.size()) + bound.out.substr(bound.out.find('\n') + 1, 10),
            first + R"({"line":3,)");
}

TEST(ConfigCheckTest, EachCommittedConfigurationGetsItsWholeReportAndStatus) {
  const std::pair<const char*, int> rows[] = {
      {"tablet", 0}, {"descriptor-gaps", 1}, {"health-name-with-plain-on", 1},
      {"interfaces-switched-off", 1}, {"names-the-daemon-never-publishes", 1},
      {"structured-service-off", 1}, {"extensions", 1}, {"tablet-extensions", 0},
      {"pressure-record-extension-off", 1}};
  for (const auto& [name, status] : rows) {
    const std::string file = fixturePath("configs/" + std::string(name));
    const std::string config = std::string(name) == "tablet" ? kTabletConfig : file + ".json";
    ToolRun run = configCheck({config});
    EXPECT_EQ(run.status, status) << name;
    EXPECT_EQ(run.err, "") << name;
    EXPECT_EQ(run.out, contents(file + ".check")) << name;
  }
  // A file the daemon fails to load fails the check, even where what was read
  // before the failure writes every configured name.
  const std::string partial = fixturePath("configs/no-vedrix-section");
  ToolRun run = configCheck({partial + ".json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "warning: " + partial + ".json: \"VedrixConfig\" is missing; the daemon would log "
                     "\"WARN: Failed to load config file\" and run with the monitor records read "
                     "before it (structured service disabled)\n" + contents(partial + ".check"));
}

TEST(RecordToolsTest, BadUsageExitsWithTwo) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"--csv", "--check"}, {"--config"}, {"--all"}, {"a.log", "b.log"},
           {"--config", "/nonexistent.json"}, {"/nonexistent.log"}}) {
    ToolRun run = decode(args);
    EXPECT_TRUE(run.status == 2 && run.out.empty() && run.err.rfind("halvex-decode: ", 0) == 0)
        << args.front() << ": " << run.err;
  }
  EXPECT_EQ(decode({"/"}).err, "halvex-decode: cannot read /: it is a directory\n");
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{}, {"a.json", "b.json"}, {"--all"}, {""}}) {
    ToolRun run = configCheck(args);
    EXPECT_TRUE(run.status == 2 && run.out.empty() &&
                run.err.rfind("halvex-config-check: one configuration file expected\n", 0) == 0);
  }
}

}  // namespace
}  // namespace halvexd
