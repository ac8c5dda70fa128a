#include "tools/ConfigFileLoader.h"

#include "config/HalvexConfig.h"
#include "config/cJSONExtras.h"

namespace halvexd::tools {

bool ConfigFileLoader::load(const std::string& path, std::string& error) {
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();
  cJSON* root = cJSON_Parse_File(path.c_str(), 0);
  if (root == nullptr) {
    error = path + ": cannot be read, is larger than " +
            std::to_string(HALVEXD_CJSON_MAX_FILE_BYTES) + " bytes, or is not one JSON value";
    return false;
  }
  int result = config.parseJsonData(root);
  cJSON_Delete(root);
  if (result != 0) {
    error = path + ": \"MonitorConfig\" or \"VedrixConfig\" is missing; the daemon would not "
                   "accept this file";
    return false;
  }
  return true;
}

}  // namespace halvexd::tools
