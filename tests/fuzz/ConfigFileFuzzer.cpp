// The configuration loader given any bytes as its file: the real loadConfig,
// through cJSON_Parse_File on a file of the scratch device. Whatever the
// bytes, the load ends with its closing line, accepts exactly the files that
// are one JSON value of at most 1 MiB without NUL bytes holding both
// top-level keys, and summarises one block per loaded record.
#include <cjson/cJSON.h>

#include <cstring>

#include "config/HalvexConfig.h"
#include "config/cJSONExtras.h"
#include "tests/fuzz/FuzzSupport.h"

using halvexd::HalvexConfig;
using namespace halvexd::fuzz;

namespace {

constexpr const char* kConfigPath = "/system/system_ext/etc/halvex_config.json";

// Whether the loader should take the file: judged on the bytes themselves,
// with cJSON reading them by length rather than as a C string.
bool acceptable(const uint8_t* data, size_t size) {
  if (size > HALVEXD_CJSON_MAX_FILE_BYTES || std::memchr(data, 0, size) != nullptr) {
    return false;
  }
  const char* end = nullptr;
  cJSON* root = cJSON_ParseWithLengthOpts(reinterpret_cast<const char*>(data), size, &end, 0);
  if (root == nullptr) {
    return false;
  }
  // Only white space may follow the value. cJSON counts every byte up to
  // and including the blank as white space, between tokens and after the
  // value alike, so a stray control byte at the end is tolerated like one
  // inside the file.
  const char* stop = reinterpret_cast<const char*>(data) + size;
  bool clean = true;
  for (const char* p = end; p < stop; ++p) {
    if (static_cast<unsigned char>(*p) > ' ') clean = false;
  }
  bool complete = cJSON_GetObjectItemCaseSensitive(root, "MonitorConfig") != nullptr &&
                  cJSON_GetObjectItemCaseSensitive(root, "VedrixConfig") != nullptr;
  cJSON_Delete(root);
  return clean && complete;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ScratchDevice::instance().write(kConfigPath, data, size);
  HalvexConfig& config = HalvexConfig::instance();
  config.resetConfig();

  LogSink log;
  bool loaded = config.loadConfig(kConfigPath);

  const auto& records = log.records();
  check(!records.empty() && records.front().message == "Load JSON config\n\n",
        "load does not start with its opening line");
  check(records.back().message == "Load JSON config done\n", "load does not end with its closing line");
  check(loaded == acceptable(data, size), loaded ? "accepted a file it must refuse"
                                                 : "refused a well-formed file");
  if (loaded) {
    check(log.count("==============================\n") == config.monitorConfigs.size(),
          "summary blocks differ from the loaded records");
    for (const auto& [key, record] : config.monitorConfigs) {
      check(key == record.metricName, "record stored under another name");
    }
  } else {
    check(log.count("Could not parse config file\n") == 1, "failed load without its error line");
  }
  config.resetConfig();
  return 0;
}
