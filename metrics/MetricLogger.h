// Collects the metric values a monitor produces between two reports and, on
// publish, writes them to the device's metrics log buffer: one plain record
// for all plain values, one structured record per structured value or
// multi-field sample. Which records are written is decided at publish time
// from the process-wide configuration.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config/HalvexConfig.h"

namespace halvexd {

// The owner's name followed by the device suffix (records::kDeviceSuffix).
// Every device reports as a tablet: the suffix is appended unconditionally.
std::string addDeviceTypeIdentifierSuffix(std::string name);

class MetricLogger {
 public:
  using FieldVector = std::vector<std::pair<std::string, std::string>>;

  MetricLogger() = default;
  virtual ~MetricLogger() = default;

  // Names the logger: the plain records start with the owner's name and the
  // device-type suffix. Always true.
  bool init(std::string name);

  // Single-value stores. The name is stored with every ':' and ';' turned
  // into '_' (both separate fields of the records); an earlier value of the
  // same name is replaced.
  void emitMetricDouble(const std::string& name, double value);
  void emitMetricUint64(const std::string& name, unsigned long value);
  void emitVedrixMetricDouble(const std::string& name, double value);
  void emitVedrixMetricUint64(const std::string& name, unsigned long value);

  // Stores a copy of one multi-field sample under `name` (not sanitised),
  // replacing an earlier sample of that name.
  void emitVedrixMetricPairVec(const std::string& name, FieldVector& fields);

  // The configuration record of a publish name, or null. Every name that
  // contains "VMPRESSURE" shares the one "VMPRESSURE" record.
  const HalvexConfig::MonitorConfig* getMonitorConfig(const std::string& name);

  // Writes the stored values under the publish name `name`.
  void publish(const std::string& name);

  // Structured record pieces; a record is header + body + tail.
  //
  // "<group id>:<schema id>:100:" from the configuration record of exactly
  // `monitorName` (the monitor's group id, or the default group id when it is
  // empty), and loads the key and value dimension tags the single-value body
  // reads. Empty, changing nothing, when there is no record or its structured
  // interface is inactive.
  std::string buildVedrixMetricHeaderString(const std::string& monitorName);

  // "<key tag>=<name>;SY,<value tag>=<value><type tag>", with the tags of the
  // last header built; empty when either tag is empty. Defined for
  // uint64_t and double values.
  template <typename T>
  std::string buildVedrixMetricBodyString(const std::string& name, T value,
                                          const std::string& type);

  // "<tag>=<value><type tag>" per field, joined by ",", matching `fields` to
  // the configured descriptors of `monitorName` by position. A field whose
  // name differs from its descriptor's is left out, but the comma after it
  // is decided by position alone. Empty when there is no record, the
  // interface is inactive, `fields` is empty or the counts differ.
  virtual std::string buildVedrixMetricVecBodyString(FieldVector& fields,
                                                     const std::string& monitorName);

  // The device fields, written empty, and ":<region>" when a region is set.
  // Built once and reused until an upload that cannot form a record clears it.
  std::string buildVedrixMetricTailString();

  // The whole publish: the plain record when the name's plain interface is
  // active, then the structured records when the structured service is on.
  void uploadZelMetric(const std::string& name);

  // The structured records: integers, then doubles, then multi-field samples.
  void uploadZelVedrixMetric(const std::string& name);

  // One structured record per sample of `store`, bodies built from the
  // configuration of `monitorName`; the store is emptied once written.
  void buildVedrixMetricVec(std::map<std::string, FieldVector>& store,
                            const std::string& monitorName);

  // The three-character tag that follows a structured value of this type
  // ("int" gives ";IN"); empty for a type it does not know.
  static std::string vedrixTypeTag(const std::string& type);

 protected:
  // The logger's stores are a fixed set, one per kind of value a record can
  // carry. Four of them are part of that set without an operation that fills
  // them: metricsInt, which the plain upload still drains (its entries come
  // first in a plain record), and metricsString, vedrixMetricsInt and
  // vedrixMetricsString, which nothing fills or reads.
  std::map<std::string, int32_t> metricsInt;
  std::map<std::string, double> metricsDouble;
  std::map<std::string, uint64_t> metricsUint64;
  std::map<std::string, std::string> metricsString;
  std::map<std::string, int64_t> vedrixMetricsInt;
  std::map<std::string, double> vedrixMetricsDouble;
  std::map<std::string, std::string> vedrixMetricsString;
  std::map<std::string, uint64_t> vedrixMetricsUint64;
  std::map<std::string, FieldVector> vedrixMetricsPairVec;
  std::string recordPrefix;
  std::string vedrixTailString;
  std::string vedrixKeyTag;
  std::string vedrixValueTag;


 private:
  // The "<name>=<value>;CT;1" entries of one plain store, each but the first
  // of the whole record preceded by ","; empties the store.
  template <typename T>
  std::string formatTrazMetricMap(std::map<std::string, T>& store, bool& first);

  // One structured record per entry of one single-value store; the store is
  // emptied once written. When no header can be formed the store keeps its
  // values (one per name, overwritten by later emits) and the cached tail and
  // tags are dropped so the next attempt reads the configuration afresh.
  template <typename T>
  void uploadVedrixMetricMap(std::map<std::string, T>& store, const std::string& monitorName,
                             const std::string& type);

  // The steps both structured uploads share: header and tail for
  // `monitorName`, one record per entry whose body (from `bodyOf`) is not
  // empty, then the store emptied; without a header the store is kept.
  template <typename Store, typename BodyOf>
  void writeStructuredStore(Store& store, const std::string& monitorName, BodyOf bodyOf);

  // Drops the cached tail and the loaded tags, so that the next upload reads
  // them from the configuration again.
  void forgetVedrixRecordPieces();

  // Writes one record to the metrics buffer.
  static void writeRecord(const std::string& record);
};

}  // namespace halvexd
