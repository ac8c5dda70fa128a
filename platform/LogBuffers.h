// Log buffers, priorities and tags shared across halvexd.
#pragma once

#include <android/log.h>

// The buffer metric records are written to: by default 8, the metrics buffer
// of the target devices' own logd and liblog, one beyond the standard buffers
// 0 to 7. A stock liblog drops a write to any buffer but main (0), radio (1),
// system (3) and crash (4), and still reports success; a build meant for a
// stock device or emulator sets this to one of those, main (0) as a rule.
#ifndef HALVEXD_METRICS_LOG_BUFFER
#define HALVEXD_METRICS_LOG_BUFFER 8
#endif

namespace halvexd {

// Human-readable status lines.
constexpr int kSystemLogBuffer = LOG_ID_SYSTEM;
// Metric records (see HALVEXD_METRICS_LOG_BUFFER above).
constexpr int kMetricsLogBuffer = HALVEXD_METRICS_LOG_BUFFER;
static_assert(kMetricsLogBuffer == 8 || kMetricsLogBuffer == LOG_ID_MAIN ||
                  kMetricsLogBuffer == LOG_ID_RADIO || kMetricsLogBuffer == LOG_ID_SYSTEM ||
                  kMetricsLogBuffer == LOG_ID_CRASH,
              "HALVEXD_METRICS_LOG_BUFFER is 8, the target devices' metrics buffer, or one "
              "a stock liblog keeps: 0, 1, 3 or 4");

}  // namespace halvexd
