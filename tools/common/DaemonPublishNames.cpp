#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "metrics/PublishNames.h"

namespace halvexd::tools {
namespace {

// The uses of one monitor's names: its system-health name, then its plain one.
void appendUses(const MonitorPublishNames& names, std::vector<PublishNameUse>& uses) {
  using Kind = PublishNameUse::Kind;
  if (names.systemHealth != nullptr) {
    const SystemHealthNames& health = *names.systemHealth;
    std::vector<std::string> fields = {health.keysField, health.typeField, health.valuesField,
                                       health.periodField};
    // The system-health logger writes its fields in key order.
    std::sort(fields.begin(), fields.end());
    uses.push_back({health.publishName, names.monitor, Kind::SystemHealth, fields});
  }
  std::vector<std::string> positional;
  for (size_t i = 0; i < names.positionalFieldCount; ++i) {
    positional.emplace_back(names.positionalFields[i]);
  }
  uses.push_back({names.plainName, names.monitor,
                  positional.empty() ? Kind::Values : Kind::ValuesWithPositionalFields,
                  positional});
}

}  // namespace

const std::vector<PublishNameUse>& daemonPublishNames() {
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<PublishNameUse> uses;
    for (const MonitorPublishNames* monitor : publishnames::kEveryMonitor) {
      appendUses(*monitor, uses);
    }
    return uses;
  }();
  return kUses;
}

std::vector<PublishNameUse> publishNamesWith(const ExtensionConfig& extensions) {
  std::vector<PublishNameUse> uses = daemonPublishNames();
  for (const publishnames::ExtensionPublishNames& extension : publishnames::kEveryExtension) {
    if (extension.active(extensions)) appendUses(*extension.names, uses);
  }
  return uses;
}

const char* extensionPublishing(const std::string& name) {
  for (const publishnames::ExtensionPublishNames& extension : publishnames::kEveryExtension) {
    std::vector<PublishNameUse> uses;
    appendUses(*extension.names, uses);
    for (const PublishNameUse& use : uses) {
      if (use.publishName == name) return extension.extension;
    }
  }
  return nullptr;
}

}  // namespace halvexd::tools
