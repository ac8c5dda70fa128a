#include "config/HalvexConfig.h"

namespace halvexd {

HalvexConfig& HalvexConfig::instance() {
  static HalvexConfig config;
  return config;
}

}  // namespace halvexd
