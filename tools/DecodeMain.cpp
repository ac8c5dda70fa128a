// halvex-decode: the metric records of a log, one value per line.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "config/HalvexConfig.h"
#include "tools/ConfigFileLoader.h"
#include "tools/RecordDecoder.h"
#include "tools/StructuredRecordAttributor.h"

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
    "                 \"line N: <what is wrong>\" for each malformed one and a count\n"
    "  --config FILE  the configuration the records were written under: a structured\n"
    "                 record's publish name is the one record of FILE with its group and\n"
    "                 schema (left empty when none or several have them), FIELDs are\n"
    "                 named after their descriptors, and the record's key and value tags\n"
    "                 decide whether its body is one value. Without it, structured\n"
    "                 records carry no publish name and a body of two pieces whose first\n"
    "                 is a string reads as one value.\n"
    "Records that cannot be decoded are reported on standard error as \"line N: ...\".\n"
    "Exit status: 0 all records read, 1 some malformed (or a line too long to read),\n"
    "2 bad usage, unreadable LOG or configuration.\n";

int usageError(const std::string& message) {
  std::cerr << "halvex-decode: " << message << "\n" << kUsage;
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using halvexd::tools::RecordDecoder;
  RecordDecoder::Mode mode = RecordDecoder::Mode::JsonLines;
  bool modeGiven = false;
  std::string configPath;
  std::string logPath;
  bool logGiven = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::cout << kUsage;
      return 0;
    }
    if (arg == "--csv" || arg == "--check") {
      RecordDecoder::Mode wanted =
          arg == "--csv" ? RecordDecoder::Mode::Csv : RecordDecoder::Mode::Check;
      if (modeGiven && wanted != mode) return usageError("--csv and --check exclude each other");
      mode = wanted;
      modeGiven = true;
    } else if (arg == "--config") {
      if (i + 1 >= argc) return usageError("--config needs a file");
      configPath = argv[++i];
    } else if (arg.size() > 1 && arg[0] == '-') {
      return usageError("unknown option " + arg);
    } else if (logGiven) {
      return usageError("more than one log given");
    } else {
      logPath = arg;
      logGiven = true;
    }
  }

  std::unique_ptr<halvexd::tools::StructuredRecordAttributor> attributor;
  if (!configPath.empty()) {
    std::string error;
    if (!halvexd::tools::ConfigFileLoader::load(configPath, error)) {
      std::cerr << "halvex-decode: " << error << "\n";
      return 2;
    }
    attributor = std::make_unique<halvexd::tools::StructuredRecordAttributor>(
        halvexd::HalvexConfig::instance());
  }

  std::ifstream file;
  std::istream* in = &std::cin;
  if (logGiven && logPath != "-") {
    std::error_code ignored;
    if (std::filesystem::is_directory(logPath, ignored)) {
      std::cerr << "halvex-decode: cannot read " << logPath << ": it is a directory\n";
      return 2;
    }
    file.open(logPath, std::ios::binary);
    if (!file) {
      std::cerr << "halvex-decode: cannot open " << logPath << ": " << std::strerror(errno) << "\n";
      return 2;
    }
    in = &file;
  }
  halvexd::tools::MetricRecordParser parser(attributor.get());
  RecordDecoder decoder(mode, parser);
  int status = decoder.run(*in, std::cout, std::cerr);
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "halvex-decode: cannot write the output\n";
    return 2;
  }
  return status;
}
