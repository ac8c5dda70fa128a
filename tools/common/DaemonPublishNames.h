// Every name the daemon's monitors publish under, with what each monitor
// hands to that publish: the record kinds a configuration can switch on and,
// for multi-field samples, the fields it sends. The configuration checker and
// the metric catalogue's test read this table; it is built from the names
// the monitors publish under (metrics/PublishNames.h), so it follows them.
#pragma once

#include <string>
#include <vector>

namespace halvexd::tools {

struct PublishNameUse {
  enum class Kind {
    // A plain record of all values, and one structured record per value.
    Values,
    // A plain record of all values, and one structured multi-field record per
    // value whose FIELDs are matched to the descriptors by position.
    ValuesWithPositionalFields,
    // One structured system-health record whose FIELDs are matched to the
    // descriptors by name; never a plain record.
    SystemHealth,
  };

  std::string publishName;
  std::string monitor;
  Kind kind;
  // The fields of each multi-field sample: by position for
  // ValuesWithPositionalFields, in key order (the order they are written in)
  // for SystemHealth. Empty for Values.
  std::vector<std::string> fields;
  // The extension of "HalvexExtensions" that switches the publish; empty
  // for a monitor's.
  std::string extension;
};

// In the order the factory builds the monitors, each monitor's system-health
// name before its plain one, as the monitors publish them; then the
// extensions' names.
const std::vector<PublishNameUse>& daemonPublishNames();

}  // namespace halvexd::tools
