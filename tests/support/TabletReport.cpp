#include "tests/support/TabletReport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "config/HalvexConfig.h"
#include "daemon/MonitorFactory.h"
#include "tools/devicesim/PerfinfoServer.h"

namespace halvexd::testing {

std::string tabletConfigPath() {
  return fixturePath("tablet/system/system_ext/etc/halvex_config.json");
}

std::vector<LogRecord> reportEveryMonitorOverTheTablet(const std::string& configPath) {
  constexpr const char* kSystemConfig = "/system/system_ext/etc/halvex_config.json";
  TempDir device;
  std::filesystem::copy(fixturePath("tablet"), device.path(),
                        std::filesystem::copy_options::recursive);
  std::filesystem::copy_file(configPath, device.path() + kSystemConfig,
                             std::filesystem::copy_options::overwrite_existing);
  ScopedSysroot sysroot(device.path());
  devicesim::PerfinfoServer perfinfo(device.path(),
                                     devicesim::PerfinfoServer::byPid({{1024, 187432}, {612, 40960}}));

  // Only the metrics buffer is returned; the start-up lines stay quiet.
  LogCapture capture;
  HalvexConfig::instance().resetConfig();
  EXPECT_TRUE(HalvexConfig::instance().loadConfig(kSystemConfig));
  std::vector<MonitorInterface*> monitors;
  EXPECT_TRUE(configureMonitors(120, false, monitors, false));
  for (MonitorInterface* monitor : monitors) EXPECT_TRUE(monitor->init());

  // The usage monitor took its first CPU sample when it was built.
  device.write("proc/stat", "cpu  1473320 60337 1033474 21598890 24875 131532 48722 0 0 0\n"
                            "cpu0 390112 15642 301229 5207645 7321 48310 20012 0 0 0\n");
  EXPECT_TRUE(monitors[0]->check(0, true));
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  for (MonitorInterface* monitor : monitors) {
    EXPECT_TRUE(monitor->check(monitor->tickOffset, true)) << monitor->name;
  }
  std::vector<LogRecord> records = capture.metricRecords();
  for (MonitorInterface* monitor : monitors) delete monitor;
  HalvexConfig::instance().resetConfig();
  return records;
}

}  // namespace halvexd::testing
