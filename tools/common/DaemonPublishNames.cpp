#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "metrics/PublishNames.h"

namespace halvexd::tools {

const std::vector<PublishNameUse>& daemonPublishNames() {
  using Kind = PublishNameUse::Kind;
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<std::pair<const MonitorPublishNames*, std::string>> publishers;
    for (const MonitorPublishNames* monitor : publishnames::kEveryMonitor) {
      publishers.emplace_back(monitor, "");
    }
    for (const ExtensionPublishNames& extension : publishnames::kEveryExtension) {
      publishers.emplace_back(extension.names, extension.extension);
    }
    std::vector<PublishNameUse> uses;
    for (const auto& [monitor, extension] : publishers) {
      const MonitorPublishNames& names = *monitor;
      if (names.systemHealth != nullptr) {
        const SystemHealthNames& health = *names.systemHealth;
        std::vector<std::string> fields = {health.keysField, health.typeField, health.valuesField,
                                           health.periodField};
        // The system-health logger writes its fields in key order.
        std::sort(fields.begin(), fields.end());
        uses.push_back({health.publishName, names.monitor, Kind::SystemHealth, fields, extension});
      }
      std::vector<std::string> positional;
      for (size_t i = 0; i < names.positionalFieldCount; ++i) {
        positional.emplace_back(names.positionalFields[i]);
      }
      uses.push_back({names.plainName, names.monitor,
                      positional.empty() ? Kind::Values : Kind::ValuesWithPositionalFields,
                      positional, extension});
    }
    return uses;
  }();
  return kUses;
}

}  // namespace halvexd::tools
