// Says, for every name the daemon publishes under, which metric records the
// loaded configuration makes it write, and why not where it writes none: the
// configuration's traps (a system-health record needs its plain interface
// inactive, descriptors matched by name or by position, the comma a left-out
// last field leaves) are easy to miss by reading the file.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/common/DaemonPublishNames.h"

namespace halvexd::tools {

class ConfigChecker {
 public:
  // What one publish of one monitor makes of one record kind.
  struct Finding {
    std::string publishName;
    std::string monitor;
    std::string recordKind;  // "plain record", "structured single-value records", ...
    bool written = false;
    std::string detail;      // written: the header's labels; not written: why not
    std::vector<std::string> warnings;
  };

  // A configured name that makes the daemon write nothing.
  struct SilentName {
    std::string name;
    std::string reason;
  };

  struct Report {
    std::vector<Finding> findings;
    std::vector<SilentName> silentNames;
  };

  // Checks the process-wide configuration, as loaded, against the daemon's
  // publish names. The record builders the daemon uses decide the bodies,
  // so what is reported is what the daemon would write.
  static Report check();

  // The line printed before the report of a file the daemon fails to load,
  // from the loader's `error`.
  static std::string loadFailureWarning(const std::string& error);

  // Writes the report; returns the exit status: 0 when every configured
  // name writes at least one record and the extensions section (if any)
  // holds no mistake, 1 otherwise.
  static int print(const Report& report, std::ostream& out);

 private:
  // The extensions section, when the file has one: each extension's
  // settings, then a warning per mistake. False when there is a mistake.
  static bool printExtensions(std::ostream& out);
  static Finding plainRecord(const PublishNameUse& use);
  static Finding singleValueRecords(const PublishNameUse& use);
  static Finding positionalFieldRecords(const PublishNameUse& use);
  static Finding systemHealthRecord(const PublishNameUse& use);
  // Common gates of every structured record: the service, the record and its
  // structured interface. False with `finding.detail` set when one is shut.
  static bool structuredGatesOpen(const PublishNameUse& use, Finding& finding);
  // The body's verdict: not written when empty, a warning when it ends in
  // a comma.
  static void judgeBody(const std::string& body, Finding& finding);
};

}  // namespace halvexd::tools
