// Records of one per-process CPU report (eleven processes): the plain record
// and the eleven structured records, each beside the least work that writes
// the same text: formatting into one reserved buffer and one log call per
// record.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "config/HalvexConfig.h"
#include "metrics/MetricLogger.h"
#include "platform/LogBuffers.h"
#include "bench/BenchRegistry.h"

namespace halvexd::bench {
namespace {

constexpr const char* kPublishName = "CpuUsage";

struct Sample {
  const char* name;
  double percent;
};

// The eleven busiest processes of a tablet at work.
const Sample kReport[] = {
    {"system_server", 12.4375},     {"surfaceflinger", 8.25},   {"com.android.systemui", 5.5},
    {"android.hardware.graphics", 3.125}, {"com.android.launcher3", 2.75}, {"logd", 1.5},
    {"audioserver", 1.25},          {"kworker_u16_2", 0.875},   {"cameraserver", 0.5},
    {"com.android.phone", 0.375},   {"lmkd", 0.125},
};
constexpr int kSamples = sizeof(kReport) / sizeof(kReport[0]);

// Configures the publish name with the plain and structured interfaces as
// given, for the life of one benchmark.
class RecordConfig {
 public:
  RecordConfig(bool plain, bool structured) {
    HalvexConfig& config = HalvexConfig::instance();
    config.resetConfig();
    config.vedrixConfig.enabled = structured;
    config.vedrixConfig.region = "eu";
    config.vedrixConfig.defaultGroupId = "hx_tablet";
    HalvexConfig::MonitorConfig& record = config.monitorConfigs[kPublishName];
    record.metricName = kPublishName;
    record.trazMetricInterface.active = plain;
    record.vedrixMetricInterface.active = structured;
    record.vedrixMetricInterface.schemaId = "hx_proc_cpu_v1";
    record.vedrixMetricInterface.metricKey.dimensionTag = "metric";
    record.vedrixMetricInterface.metricValue.dimensionTag = "value";
  }
  ~RecordConfig() { HalvexConfig::instance().resetConfig(); }
};

void countRecords(benchmark::State& state, int recordsPerPass) {
  state.counters["records"] =
      benchmark::Counter(recordsPerPass, benchmark::Counter::kIsIterationInvariantRate);
}

// One report: the eleven values stored as plain values (one record) or as
// structured ones (one record each), then published.
void reportRecords(benchmark::State& state, bool plain) {
  RecordConfig config(plain, !plain);
  MetricLogger logger;
  logger.init("ProcessCpuMonitor");
  for (auto _ : state) {
    for (const Sample& sample : kReport) {
      if (plain) {
        logger.emitMetricDouble(sample.name, sample.percent);
      } else {
        logger.emitVedrixMetricDouble(sample.name, sample.percent);
      }
    }
    logger.publish(kPublishName);
  }
  countRecords(state, plain ? 1 : kSamples);
}

void plainRecord(benchmark::State& state) {
  reportRecords(state, true);
}

void plainRecordLowerBound(benchmark::State& state) {
  char record[4096];
  for (auto _ : state) {
    int length = std::snprintf(record, sizeof(record), "ProcessCpuMonitorTablet:%s:", kPublishName);
    for (int i = 0; i < kSamples; ++i) {
      length += std::snprintf(record + length, sizeof(record) - length, "%s%s=%g;CT;1",
                              i == 0 ? "" : ",", kReport[i].name, kReport[i].percent);
    }
    std::snprintf(record + length, sizeof(record) - length, ":NR");
    __android_log_buf_print(kMetricsLogBuffer, ANDROID_LOG_INFO, "metrics.halvexd", "%s", record);
  }
  countRecords(state, 1);
}

void structuredRecords(benchmark::State& state) {
  reportRecords(state, false);
}

void structuredRecordsLowerBound(benchmark::State& state) {
  static const char kTail[] =
      ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
      "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
      "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY:eu";
  char record[4096];
  for (auto _ : state) {
    for (const Sample& sample : kReport) {
      std::snprintf(record, sizeof(record), "hx_tablet:hx_proc_cpu_v1:100:metric=%s;SY,value=%g;FL%s",
                    sample.name, sample.percent, kTail);
      __android_log_buf_print(kMetricsLogBuffer, ANDROID_LOG_INFO, "metrics.halvexd", "%s",
                              record);
    }
  }
  countRecords(state, kSamples);
}

}  // namespace

void registerRecordBenchmarks() {
  benchmark::RegisterBenchmark("PlainRecord", plainRecord);
  benchmark::RegisterBenchmark("PlainRecord_LowerBound", plainRecordLowerBound);
  benchmark::RegisterBenchmark("StructuredRecords", structuredRecords);
  benchmark::RegisterBenchmark("StructuredRecords_LowerBound", structuredRecordsLowerBound);
}

}  // namespace halvexd::bench
