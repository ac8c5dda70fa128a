// A monitor's second logger: assembles one multi-field sample per report
// from named text fields (some growing into "|"-separated lists), stores it
// as a structured multi-field metric and writes it on publish, matching the
// fields to the configured descriptors by name.
#pragma once

#include <map>
#include <string>

#include "metrics/MetricLogger.h"

namespace halvexd {

class SysHealthMetricLogger : public MetricLogger {
 public:
  SysHealthMetricLogger() = default;
  ~SysHealthMetricLogger() override = default;

  // Field `key` becomes the decimal text of `value`.
  void appendUint64ToVec(const std::string& key, unsigned long value);

  // Field `key` becomes `value` when it is new, otherwise grows by
  // `separator` and `value`.
  void appendStringToVec(const std::string& key, const std::string& value,
                         const std::string& separator);

  // When `percentileName` ends in ".P50", ".P90" or ".P99" (any case, and
  // that ending occurring nowhere earlier in the name), appends `prefix` with
  // that ending in upper case to the list in `keysKey` and `value` to the
  // list in `valuesKey`, keeping the two lists in step. Otherwise nothing.
  void appendPercentileToVec(const std::string& keysKey, const std::string& prefix,
                             const std::string& percentileName, const std::string& valuesKey,
                             const std::string& value);

  // The fields collected so far, in key order.
  FieldVector buildVector();

  // Stores the collected fields as the sample `name` and starts a new,
  // empty collection.
  void emitVedrixMetricPairVec(const std::string& name);

  // "<tag>=<value><type tag>" per field, joined by ",": each field is matched
  // to the configured descriptor of the same name, so the record follows the
  // key order of the fields. A field without a descriptor is left out, but
  // the comma after it is decided by position alone. Empty when there is no
  // configuration record, its structured interface is inactive, or there are
  // no fields.
  std::string buildVedrixMetricVecBodyString(FieldVector& fields,
                                             const std::string& monitorName) override;

 private:
  std::map<std::string, std::string> vecFields;
};

}  // namespace halvexd
