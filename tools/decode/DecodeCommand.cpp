#include "tools/decode/DecodeCommand.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "config/HalvexConfig.h"
#include "tools/common/ConfigFileLoader.h"
#include "tools/decode/RecordDecoder.h"
#include "tools/decode/StructuredRecordAttributor.h"

namespace halvexd::tools {
namespace {

const char* const kUsage =
    "usage: halvex-decode [--csv | --check] [--config FILE] [LOG]\n"
    "Reads LOG (or standard input when it is absent or \"-\"): logcat text (threadtime or\n"
    "brief, also `logcat -b all` output), the host build's text log, or its jsonl log\n"
    "(HALVEXD_LOG_FORMAT=jsonl). Picks out the records of the tag \"metrics.halvexd\" and\n"
    "writes one JSON object per metric value, with the keys line, kind (plain or\n"
    "structured), form (single or fields, structured records only), prefix, publish,\n"
    "metric, value (the exact text), type (CT for plain entries, the type tag's letters\n"
    "for structured values), group, schema, key_tag, value_tag and region.\n"
    "  --csv          the same columns as a CSV table with a header row\n"
    "  --check        only check every record against the record grammar: prints\n"
    "                 \"line N: <what is wrong>\" for each malformed one and a count.\n"
    "                 Exact only with --config: without it a multi-field body can be\n"
    "                 split in more than one way (values may hold ',' and type tags),\n"
    "                 so it is split as best it can and not refused for that alone.\n"
    "  --config FILE  the configuration the records were written under: a structured\n"
    "                 record's publish name is the one record of FILE with its group and\n"
    "                 schema (left empty when none or several have them), FIELDs are\n"
    "                 named after their descriptors, and the record's key and value tags\n"
    "                 decide whether its body is one value, and its descriptors (tags\n"
    "                 and types, in descriptor order or, for a system-health record,\n"
    "                 field-name order) split a multi-field body, so values holding\n"
    "                 separators are read whole. Without it, structured records carry\n"
    "                 no publish name, a body of two pieces whose first is a string and\n"
    "                 whose second an \";IN\" or \";FL\" number reads as one value, and\n"
    "                 FIELDs end at a type tag followed by ',' (a FIELD of a type\n"
    "                 without a tag runs on into the next).\n"
    "Records that cannot be decoded are reported on standard error as \"line N: ...\".\n"
    "Exit status: 0 all records read, 1 some malformed (or a line too long to read),\n"
    "2 bad usage, unreadable LOG (or a directory) or configuration.\n";

int usageError(std::ostream& err, const std::string& message) {
  err << "halvex-decode: " << message << "\n" << kUsage;
  return 2;
}

}  // namespace

int runDecode(const std::vector<std::string>& args, std::istream& standardInput,
              int standardInputFd, std::ostream& out, std::ostream& err) {
  RecordDecoder::Mode mode = RecordDecoder::Mode::JsonLines;
  bool modeGiven = false;
  std::string configPath;
  std::string logPath;
  bool logGiven = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "-h" || arg == "--help") {
      out << kUsage;
      return 0;
    }
    if (arg == "--csv" || arg == "--check") {
      RecordDecoder::Mode wanted =
          arg == "--csv" ? RecordDecoder::Mode::Csv : RecordDecoder::Mode::Check;
      if (modeGiven && wanted != mode) return usageError(err, "--csv and --check exclude each other");
      mode = wanted;
      modeGiven = true;
    } else if (arg == "--config") {
      if (i + 1 >= args.size()) return usageError(err, "--config needs a file");
      configPath = args[++i];
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usageError(err, "unknown option " + arg);
    } else if (logGiven) {
      return usageError(err, "more than one log given");
    } else {
      logPath = arg;
      logGiven = true;
    }
  }

  std::unique_ptr<StructuredRecordAttributor> attributor;
  if (!configPath.empty()) {
    std::string error;
    if (!ConfigFileLoader::load(configPath, error)) {
      err << "halvex-decode: " << error << "\n";
      return 2;
    }
    attributor = std::make_unique<StructuredRecordAttributor>(
        HalvexConfig::instance());
  }

  std::ifstream file;
  std::istream* in = &standardInput;
  if (logGiven && logPath != "-") {
    std::error_code ignored;
    if (std::filesystem::is_directory(logPath, ignored)) {
      err << "halvex-decode: cannot read " << logPath << ": it is a directory\n";
      return 2;
    }
    file.open(logPath, std::ios::binary);
    if (!file) {
      err << "halvex-decode: cannot open " << logPath << ": " << std::strerror(errno) << "\n";
      return 2;
    }
    in = &file;
  }
  if (in == &standardInput) {
    // Reading a directory fails without a word; say so instead of "0 records".
    struct stat status;
    if (fstat(standardInputFd, &status) == 0 && S_ISDIR(status.st_mode)) {
      err << "halvex-decode: cannot read standard input: it is a directory\n";
      return 2;
    }
  }
  MetricRecordParser parser(attributor.get());
  RecordDecoder decoder(mode, parser);
  int status = decoder.run(*in, out, err);
  out.flush();
  if (!out) {
    err << "halvex-decode: cannot write the output\n";
    return 2;
  }
  return status;
}

}  // namespace halvexd::tools
