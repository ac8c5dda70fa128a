#include "tools/common/DaemonPublishNames.h"

#include <algorithm>

#include "daemon/MonitorFactory.h"

namespace halvexd::tools {

namespace {

// The uses of one monitor's names: its system-health name, then its plain one.
void appendUses(const MonitorPublishing& monitor, std::vector<PublishNameUse>& uses) {
  using Kind = PublishNameUse::Kind;
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

}  // namespace

const std::vector<PublishNameUse>& daemonPublishNames() {
  static const std::vector<PublishNameUse> kUses = [] {
    std::vector<PublishNameUse> uses;
    for (const MonitorPublishing& monitor : monitorPublishNames()) appendUses(monitor, uses);
    return uses;
  }();
  return kUses;
}

std::vector<PublishNameUse> publishNamesWith(const ExtensionConfig& extensions) {
  std::vector<PublishNameUse> uses = daemonPublishNames();
  for (const ExtensionPublishing& extension : extensionPublishNames()) {
    if (extension.active(extensions)) appendUses(extension.publishing, uses);
  }
  return uses;
}

const char* extensionPublishing(const std::string& name) {
  for (const ExtensionPublishing& extension : extensionPublishNames()) {
    std::vector<PublishNameUse> uses;
    appendUses(extension.publishing, uses);
    for (const PublishNameUse& use : uses) {
      if (use.publishName == name) return extension.extension;
    }
  }
  return nullptr;
}

}  // namespace halvexd::tools
