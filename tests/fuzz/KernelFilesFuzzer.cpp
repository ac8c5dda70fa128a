// The kernel files the daemon reads, given any contents. The first byte picks
// the file (0 meminfo, 1 uptime, 2 stat, 3 lmk_stats, 4 zram, 5 KSM, 6 pid
// stat, 7 comm and cmdline, 8 cmdline, 9 smaps_rollup, 10 pressure); the rest
// is its text. The reader over the file must give what its parser gives over
// the part the reader reads, KSM counters must make a saving between 0 and
// the pages shared, and no pressure average may exceed 100.00.
#include <cstring>
#include <tuple>

#include "monitors/SystemMemMonitor.h"
#include "stats/StatUtil.h"
#include "tests/fuzz/FuzzSupport.h"

using namespace halvexd;
using namespace halvexd::fuzz;

namespace {

std::string head(const std::string& text, size_t bytes) { return text.substr(0, bytes); }
std::string firstLine(const std::string& text, size_t bytes) {
  return head(text.substr(0, text.find('\n') == text.npos ? text.npos : text.find('\n') + 1), bytes);
}
constexpr size_t kTable = 8 << 20;

// "<key> = <n> Kb" on the system log.
unsigned long long reported(const testing::LogCapture& log, const std::string& key) {
  for (const auto& r : log.records()) {
    if (r.message.rfind(key + " = ", 0) == 0) return std::stoull(r.message.substr(key.size() + 3));
  }
  check(false, key + " not reported");
  return 0;
}

void ksm(ByteReader& in) {
  const testing::TempDir& device = scratchDevice();
  device.write("proc/meminfo", "MemTotal: 4000 kB\nMemAvailable: 1000 kB\n");
  device.write("sys/block/zram0/mm_stat", "1 2 3072 0 0 0 0 0 0\n");
  for (const char* file : {"sys/kernel/mm/ksm/pages_sharing", "sys/kernel/mm/ksm/pages_shared",
                           "sys/kernel/mm/ksm/pages_unshared", "sys/kernel/mm/ksm/pages_volatile",
                           "sys/kernel/mm/ksm/pages_sharing_always",
                           "sys/kernel/slab/ksm_rmap_item/object_size"}) {
    uint8_t how = in.byte() % 8;
    if (how == 0) removeDeviceFile(file);
    else device.write(file, how == 1 ? std::to_string(in.number()) + "\n" : in.text(40));
  }
  testing::LogCapture log;
  systemmemmonitor::SystemMemMonitor monitor({"SystemMemMonitor", true});
  monitor.init();
  check(monitor.check(0, true), "snapshot failed with meminfo and zram present");
  auto sharing = reported(log, "mem_ksm_pages_sharing"), saving = reported(log, "mem_ksm_saving");
  check(saving <= sharing, "saving above the pages shared");
  check(saving == 0 || saving == sharing - reported(log, "mem_ksm_overhead"),
        "saving is not sharing minus overhead");
}

void processName(ByteReader& in) {
  std::string comm = in.text(40);
  if (in.flag()) comm = "Binder:" + comm;
  bool haveCmdline = in.flag();
  std::string cmdline = in.rest();
  scratchDevice().write("proc/777/comm", comm);
  if (haveCmdline) scratchDevice().write("proc/777/cmdline", cmdline);
  else removeDeviceFile("proc/777/cmdline");
  char name[kProcessNameSize], parsed[kProcessNameSize] = {};
  std::memset(name, 'x', sizeof(name));
  bool read = StatUtil::getProcessName(777, name);
  check(read == parseProcessComm(firstLine(comm, 31), parsed), "comm: reader and parser disagree");
  if (!read) return check(name[0] == 'x', "a refused name was written");
  FirstArgumentTail tail;
  bool cmdlineOk = haveCmdline && !cmdline.empty();
  if (cmdlineOk) parseCmdlinePiece(cmdline, tail);
  std::string expected = !isBinderThreadName(parsed) ? std::string(parsed)
                                                     : binderProcessName(cmdlineOk ? &tail : nullptr);
  check(expected.size() < kProcessNameSize && expected == name, "name differs from its parsers'");
}

bool pressure(const std::string& text) {
  PressureStall fromFile, parsed;
  const int error = StatUtil::getPressure("memory", fromFile);
  if ((error == 0) != parsePressure(head(text, 4096), parsed)) return false;
  if (error != 0) return true;
  for (const auto* pair : {&fromFile.some, &fromFile.full, &parsed.some, &parsed.full}) {
    check(pair->avg10 <= 10000 && pair->avg60 <= 10000 && pair->avg300 <= 10000,
          "a pressure average above 100.00");
  }
  auto figures = [](const PressureLine& l) {
    return std::tie(l.present, l.avg10, l.avg60, l.avg300, l.totalUs);
  };
  return figures(fromFile.some) == figures(parsed.some) &&
         figures(fromFile.full) == figures(parsed.full);
}

bool zram(ByteReader& in) {
  const testing::TempDir& device = scratchDevice();
  uint8_t presence = in.byte();
  std::string mmStat = in.text(255);
  if (in.flag()) mmStat += std::string(4096, ' ');  // a value pushed past the first page
  std::string memUsedTotal = in.rest();
  if (presence & 1) device.write("sys/block/zram0/mm_stat", mmStat);
  else removeDeviceFile("sys/block/zram0/mm_stat");
  if (presence & 2) device.write("sys/block/zram0/mem_used_total", memUsedTotal);
  else removeDeviceFile("sys/block/zram0/mem_used_total");
  unsigned long kib = 0, bytes = 0;
  bool read = StatUtil::getZramMemUsedKb(kib);
  bool expected = ((presence & 1) && parseZramMmStat(head(mmStat, 4096), bytes)) ||
                  ((presence & 2) && parseFirstUnsigned(head(memUsedTotal, 4096), bytes));
  return read == expected && (!read || kib == (bytes >> 10));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  ByteReader in(data + 1, size - 1);
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const char* const files[] = {"proc/meminfo",        "proc/uptime",
                               "proc/stat",           "proc/lmk_stats",
                               "",                    "",
                               "proc/4242/stat",      "",
                               "proc/31337/cmdline",  "proc/4243/smaps_rollup",
                               "proc/pressure/memory"};
  const int selector = data[0] % 11;
  if (files[selector][0] != '\0') scratchDevice().write(files[selector], text);
  testing::LogCapture quiet;
  bool agree = true;
  if (selector == 0) {
    SysMeminfoKb fromFile{}, parsed{};
    agree = StatUtil::getMeminfo(fromFile);
    parseMeminfo(head(text, kTable), parsed);
    agree = agree && std::memcmp(&fromFile, &parsed, sizeof(parsed)) == 0;
  } else if (selector == 1) {
    agree = StatUtil::getUptime() == parseUptime(firstLine(text, 511));
  } else if (selector == 2) {
    agree = StatUtil::getCpuTimes() == parseCpuTimes(head(text, kTable));
  } else if (selector == 3) {
    std::map<std::string, unsigned long> fromFile = {{"Fg", 1}, {"Backup", 1}, {"Other", 1}};
    std::map<std::string, unsigned long> parsed = fromFile;
    agree = StatUtil::getLmkStats(fromFile) == parseLmkStats(head(text, kTable), parsed) &&
            fromFile == parsed && parsed.size() == 3;
  } else if (selector == 4) {
    agree = zram(in);
  } else if (selector == 5) {
    ksm(in);
  } else if (selector == 6) {
    ProcessStat a{}, b{};
    agree = StatUtil::getProcessStat(4242, a) == parseProcessStat(firstLine(text, 511), b) &&
            std::tie(a.pid, a.utime, a.stime, a.starttime, a.rss) ==
                std::tie(b.pid, b.utime, b.stime, b.starttime, b.rss);
  } else if (selector == 7) {
    processName(in);
  } else if (selector == 9) {
    unsigned long fromFile = 0, parsed = 0;
    bool read = StatUtil::getProcessPssFromRollup(4243, fromFile);
    agree = read == parseSmapsRollupPss(head(text, 4096), parsed) && (!read || fromFile == parsed);
  } else if (selector == 10) {
    agree = pressure(text);
  } else {
    std::string fromFile = "untouched", parsed;
    bool read = StatUtil::getProcessCmdline(31337, fromFile);
    agree = read == parseProcessCmdline(head(text, kMaxCmdlineBytes), parsed) &&
            (!read || fromFile == parsed);
  }
  check(agree, "reader and parser disagree over file " + std::to_string(selector));
  return 0;
}
