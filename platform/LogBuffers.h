// Log buffers, priorities and tags shared across halvexd.
#pragma once

#include <android/log.h>

namespace halvexd {

// Human-readable status lines.
constexpr int kSystemLogBuffer = LOG_ID_SYSTEM;
// The device's metrics buffer, one beyond the standard buffers 0 to 7.
constexpr int kMetricsLogBuffer = 8;

}  // namespace halvexd
