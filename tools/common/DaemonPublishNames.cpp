#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "metrics/PublishNames.h"

namespace halvexd::tools {
namespace {

// The uses of one monitor's names, switched by `extension` (empty for a
// monitor of the table): its system-health name, then its plain one.
void appendUses(const MonitorPublishNames& names, const std::string& extension,
                std::vector<PublishNameUse>& uses) {
  using Kind = PublishNameUse::Kind;
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

}  // namespace

const std::vector<PublishNameUse>& daemonPublishNames() {
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<PublishNameUse> uses;
    for (const MonitorPublishNames* monitor : publishnames::kEveryMonitor) {
      appendUses(*monitor, "", uses);
    }
    for (const ExtensionPublishNames& extension : publishnames::kEveryExtension) {
      appendUses(*extension.names, extension.extension, uses);
    }
    return uses;
  }();
  return kUses;
}

}  // namespace halvexd::tools
