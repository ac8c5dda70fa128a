// Names and separators shared by the daemon's modules. Each module that
// includes this gets its own copies, built before main runs.
#pragma once

#include <string>

namespace halvexd {

// Low-memory-killer process classes, as /proc/lmk_stats names them.
static const std::string kLmkPersistent = "Persistent";
static const std::string kLmkFg = "Fg";
static const std::string kLmkVisible = "Visible";
static const std::string kLmkPerceptible = "Perceptible";
static const std::string kLmkBackup = "Backup";
static const std::string kLmkOther = "Other";

// Separators of the system-health field lists.
static const std::string kFieldSeparator = "|";
static const std::string kItemSeparator = " ";

}  // namespace halvexd
