// Finds, from a configuration, which publish name a structured record was
// written under. A structured record carries only its group and schema id, so
// the record of the configuration whose (effective) group and schema match is
// taken when there is exactly one; with none or several the name stays
// unknown.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "config/HalvexConfig.h"

namespace halvexd::tools {

class StructuredRecordAttributor {
 public:
  // Indexes every record of `config` under its group id (the default group id
  // where its own is empty) and schema id. `config` must outlive this object.
  explicit StructuredRecordAttributor(const HalvexConfig& config);

  // The one configuration record whose records carry this group and schema,
  // or null when none or more than one does.
  const HalvexConfig::MonitorConfig* recordFor(const std::string& group,
                                               const std::string& schema) const;

  // The descriptor name of a FIELD tag in `record`: the first descriptor with
  // that dimension tag, or empty when there is none.
  static std::string descriptorNameFor(const HalvexConfig::MonitorConfig& record,
                                       const std::string& tag);

 private:
  std::map<std::pair<std::string, std::string>, std::vector<const HalvexConfig::MonitorConfig*>>
      byLabels;
};

}  // namespace halvexd::tools
