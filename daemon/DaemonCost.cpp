#include "daemon/DaemonCost.h"

#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <iterator>

#include "config/HalvexConfig.h"
#include "platform/LogBuffers.h"
#include "stats/StatUtil.h"

namespace halvexd::daemoncost {
namespace {

constexpr const char* kTag = "halvexd:DaemonCost";

uint64_t monotonicMicros() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
}

double millis(uint64_t micros) { return static_cast<double>(micros) / 1000.0; }

}  // namespace

DaemonCost::DaemonCost(const ExtensionConfig::DaemonCost& settings)
    : settings(settings), clock(monotonicMicros) {
  long ticksPerSecond = sysconf(_SC_CLK_TCK);
  if (ticksPerSecond > 0) msPerClockTick = 1000 / static_cast<uint64_t>(ticksPerSecond);
  metricLogger.init(publishnames::kDaemonCost.plainName);
  last = readOwn();
}

DaemonCost::Own DaemonCost::readOwn() {
  Own own;
  ProcessStat stat{};
  if (StatUtil::getProcessStatFromFile("/proc/self/stat", stat)) {
    own.cpuTicks = static_cast<uint64_t>(stat.utime) + stat.stime;
  }
  StatUtil::getKeyedNumbersFromFile(
      "/proc/self/status",
      {{"voluntary_ctxt_switches", &own.voluntarySwitches}, {"VmRSS", &own.rssKb}});
  own.hasRollup = StatUtil::getKeyedNumbersFromFile(
      "/proc/self/smaps_rollup", {{"Pss", &own.pssKb}, {"Private_Dirty", &own.privateDirtyKb}});
  // Listing the folder takes a descriptor of its own, which it lists too.
  if (StatUtil::countDirectoryEntries("/proc/self/fd", own.openFds) && own.openFds > 0) {
    --own.openFds;
  }
  return own;
}

void DaemonCost::tickBegins() {
  tickStart = clock();
  tickLongestMicros = 0;
  tickLongestCheck.clear();
}

void DaemonCost::checkDone(const std::string& monitor, uint64_t micros) {
  if (tickLongestCheck.empty() || micros > tickLongestMicros) {
    tickLongestCheck = monitor;
    tickLongestMicros = micros;
  }
}

void DaemonCost::tickDone(uint64_t tick) {
  const uint64_t tickMicros = clock() - tickStart;
  ++ticks;
  tickMicrosSum += tickMicros;
  if (tickMicros > tickMicrosMax) tickMicrosMax = tickMicros;
  if (!tickLongestCheck.empty() &&
      (longestCheck.empty() || tickLongestMicros > longestCheckMicros)) {
    longestCheck = tickLongestCheck;
    longestCheckMicros = tickLongestMicros;
  }
  warnOverBudget(tick, tickMicros);
  if ((tick + 1) % settings.intervalTicks == 0) report();
}

void DaemonCost::warnOverBudget(uint64_t tick, uint64_t tickMicros) {
  if (settings.tickBudgetMs == 0 || warned || tickMicros <= settings.tickBudgetMs * 1000) return;
  warned = true;
  __android_log_buf_print(
      kSystemLogBuffer, ANDROID_LOG_WARN, kTag,
      "Tick %llu took %.3f ms, over the budget of %llu ms; longest check %s %.3f ms",
      static_cast<unsigned long long>(tick), millis(tickMicros),
      static_cast<unsigned long long>(settings.tickBudgetMs), tickLongestCheck.c_str(),
      millis(tickLongestMicros));
}

void DaemonCost::report() {
  const Own now = readOwn();
  const uint64_t cpuMs = (now.cpuTicks - last.cpuTicks) * msPerClockTick;
  const uint64_t switches = now.voluntarySwitches - last.voluntarySwitches;
  const uint64_t meanMicros = ticks == 0 ? 0 : tickMicrosSum / ticks;
  char rollup[96] = "PSS unknown, private dirty unknown";
  if (now.hasRollup) {
    std::snprintf(rollup, sizeof(rollup), "PSS %llu kB, private dirty %llu kB",
                  static_cast<unsigned long long>(now.pssKb),
                  static_cast<unsigned long long>(now.privateDirtyKb));
  }
  __android_log_buf_print(
      kSystemLogBuffer, ANDROID_LOG_INFO, kTag,
      "Own cost over %llu ticks: CPU %llu ms, %llu voluntary switches, tick mean %.3f ms, max "
      "%.3f ms, longest check %s %.3f ms, RSS %llu kB, %s, %llu open descriptors",
      static_cast<unsigned long long>(ticks), static_cast<unsigned long long>(cpuMs),
      static_cast<unsigned long long>(switches), millis(meanMicros), millis(tickMicrosMax),
      longestCheck.c_str(), millis(longestCheckMicros), static_cast<unsigned long long>(now.rssKb),
      rollup, static_cast<unsigned long long>(now.openFds));

  // Values go to the logger only where a record will take them, as it keeps
  // what it cannot write.
  const HalvexConfig::MonitorConfig* record =
      metricLogger.getMonitorConfig(publishnames::kDaemonCost.plainName);
  const bool plain = record != nullptr && record->trazMetricInterface.active;
  const bool structured = record != nullptr && record->vedrixMetricInterface.active &&
                          HalvexConfig::instance().vedrixConfig.enabled;
  if (plain) {
    metricLogger.emitMetricUint64("IntervalTicks", ticks);
    metricLogger.emitMetricUint64("CpuTimeMs", cpuMs);
    metricLogger.emitMetricUint64("VoluntarySwitches", switches);
    metricLogger.emitMetricUint64("TickMeanUs", meanMicros);
    metricLogger.emitMetricUint64("TickMaxUs", tickMicrosMax);
    metricLogger.emitMetricUint64("LongestCheckUs." + longestCheck, longestCheckMicros);
    metricLogger.emitMetricUint64("RssKB", now.rssKb);
    if (now.hasRollup) metricLogger.emitMetricUint64("PssKB", now.pssKb);
    if (now.hasRollup) metricLogger.emitMetricUint64("PrivateDirtyKB", now.privateDirtyKb);
    metricLogger.emitMetricUint64("OpenFds", now.openFds);
  }
  if (structured) {
    const uint64_t numbers[] = {
        ticks,     cpuMs,     switches,           meanMicros, tickMicrosMax, 0, longestCheckMicros,
        now.rssKb, now.pssKb, now.privateDirtyKb, now.openFds};
    MetricLogger::FieldVector fields;
    for (size_t i = 0; i < std::size(publishnames::kDaemonCostFields); ++i) {
      fields.emplace_back(publishnames::kDaemonCostFields[i], i == 5 ? longestCheck : std::to_string(numbers[i]));
    }
    metricLogger.emitVedrixMetricPairVec(publishnames::kDaemonCost.plainName, fields);
  }
  if (plain || structured) metricLogger.publish(publishnames::kDaemonCost.plainName);

  last = now;
  ticks = 0;
  tickMicrosSum = 0;
  tickMicrosMax = 0;
  longestCheck.clear();
  longestCheckMicros = 0;
  warned = false;
}

}  // namespace halvexd::daemoncost
