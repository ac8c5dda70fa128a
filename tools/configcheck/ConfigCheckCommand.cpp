#include "tools/configcheck/ConfigCheckCommand.h"

#include "tools/configcheck/ConfigChecker.h"
#include "tools/common/ConfigFileLoader.h"

namespace halvexd::tools {
namespace {

const char* const kUsage =
    "usage: halvex-config-check CONFIG\n"
    "Loads CONFIG with the daemon's own loader and prints, for every name the daemon\n"
    "publishes under and each monitor that publishes it, which records it will write\n"
    "(plain, structured single-value, structured multi-field, structured system-health)\n"
    "with their group and schema, or why not (no configuration record, plain interface\n"
    "inactive or, for a system-health name, active; structured service disabled; Vedrix\n"
    "interface inactive; no descriptor matching), and warnings where a field the monitor\n"
    "sends has no descriptor or the record's body ends in a comma.\n"
    "A file the daemon fails to load (unreadable, not JSON, \"MonitorConfig\" or\n"
    "\"VedrixConfig\" missing) gets a warning line first: the daemon logs \"WARN: Failed\n"
    "to load config file\" and runs with what its loader read before the failure (or\n"
    "with an empty configuration); the report then says what it writes with that.\n"
    "A \"HalvexExtensions\" section is reported last: which extensions are on with what\n"
    "settings, and a warning for each mistake in it (wrong type, out of bounds, unknown key).\n"
    "Exit status: 0 when the file loads and every configured name writes records, 1 when\n"
    "the file fails to load, a configured name writes nothing (each is named) or the\n"
    "extensions section holds a mistake, 2 bad usage.\n";

}  // namespace

int runConfigCheck(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() == 1 && (args[0] == "-h" || args[0] == "--help")) {
    out << kUsage;
    return 0;
  }
  if (args.size() != 1 || args[0].empty() || (args[0][0] == '-' && args[0] != "-")) {
    err << "halvex-config-check: one configuration file expected\n" << kUsage;
    return 2;
  }
  std::string error;
  const bool loaded = ConfigFileLoader::load(args[0], error);
  if (!loaded) {
    out << ConfigChecker::loadFailureWarning(error) << "\n";
  }
  int status = ConfigChecker::print(ConfigChecker::check(), out);
  out.flush();
  return loaded ? status : 1;
}

}  // namespace halvexd::tools
