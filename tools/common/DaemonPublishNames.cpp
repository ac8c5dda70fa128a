#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "daemon/MonitorFactory.h"

namespace halvexd::tools {

const std::vector<PublishNameUse>& daemonPublishNames() {
  using Kind = PublishNameUse::Kind;
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<PublishNameUse> uses;
    std::vector<MonitorPublishing> publishers = monitorPublishNames();
    const size_t monitorCount = publishers.size();
    for (const MonitorPublishing& extension : extensionPublishNames()) {
      publishers.push_back(extension);
    }
    for (size_t at = 0; at < publishers.size(); ++at) {
      const MonitorPublishing& monitor = publishers[at];
      const std::string extension = at < monitorCount ? "" : monitor.monitor;
      const MonitorPublishNames& names = *monitor.names;
      if (names.systemHealth != nullptr) {
        const SystemHealthNames& health = *names.systemHealth;
        std::vector<std::string> fields = {health.keysField, health.typeField, health.valuesField,
                                           health.periodField};
        // The system-health logger writes its fields in key order.
        std::sort(fields.begin(), fields.end());
        uses.push_back(
            {health.publishName, monitor.monitor, Kind::SystemHealth, fields, extension});
      }
      std::vector<std::string> positional;
      for (size_t i = 0; i < names.positionalFieldCount; ++i) {
        positional.emplace_back(names.positionalFields[i]);
      }
      uses.push_back({names.plainName, monitor.monitor,
                      positional.empty() ? Kind::Values : Kind::ValuesWithPositionalFields,
                      positional, extension});
    }
    return uses;
  }();
  return kUses;
}

}  // namespace halvexd::tools
