#include "tools/common/ConfigFileLoader.h"

#include "config/HalvexConfig.h"
#include "config/cJSONExtras.h"

namespace halvexd::tools {
namespace {

const std::string kDaemonWould =
    "the daemon would log \"WARN: Failed to load config file\" and run with ";

}  // namespace

bool ConfigFileLoader::load(const std::string& path, std::string& error) {
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  cJSON* root = cJSON_Parse_File(path.c_str(), 0);
  if (root == nullptr) {
    error = path + ": cannot be read, is larger than " +
            std::to_string(HALVEXD_CJSON_MAX_FILE_BYTES) +
            " bytes, or is not one JSON value; " + kDaemonWould + "an empty configuration";
    return false;
  }
  // The loader stops at the first required key it misses, keeping what it
  // stored before; "MonitorConfig" comes first.
  const bool monitorsPresent = cJSON_GetObjectItemCaseSensitive(root, "MonitorConfig") != nullptr;
  int result = config.parseJsonData(root);
  cJSON_Delete(root);
  if (result != 0) {
    error = monitorsPresent
                ? path + ": \"VedrixConfig\" is missing; " + kDaemonWould +
                         "the monitor records read before it (structured service disabled)"
                : path + ": \"MonitorConfig\" is missing; " + kDaemonWould + "an empty configuration";
    return false;
  }
  return true;
}

}  // namespace halvexd::tools
