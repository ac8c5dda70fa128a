#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "daemon/MonitorFactory.h"

namespace halvexd::tools {

const std::vector<PublishNameUse>& daemonPublishNames() {
  using Kind = PublishNameUse::Kind;
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<PublishNameUse> uses;
    for (const MonitorPublishing& monitor : monitorPublishNames()) {
      const MonitorPublishNames& names = *monitor.names;
      if (names.systemHealth != nullptr) {
        const SystemHealthNames& health = *names.systemHealth;
        std::vector<std::string> fields = {health.keysField, health.typeField, health.valuesField,
                                           health.periodField};
        // The system-health logger writes its fields in key order.
        std::sort(fields.begin(), fields.end());
        uses.push_back({health.publishName, monitor.monitor, Kind::SystemHealth, fields});
      }
      std::vector<std::string> positional;
      for (size_t i = 0; i < names.positionalFieldCount; ++i) {
        positional.emplace_back(names.positionalFields[i]);
      }
      uses.push_back({names.plainName, monitor.monitor,
                      positional.empty() ? Kind::Values : Kind::ValuesWithPositionalFields,
                      positional});
    }
    return uses;
  }();
  return kUses;
}

}  // namespace halvexd::tools
