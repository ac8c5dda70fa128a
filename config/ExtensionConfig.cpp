#include "config/ExtensionConfig.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace halvexd {
namespace {

constexpr const char* kSection = "HalvexExtensions";

// One key of an extension's object and the field it fills. Numbers are
// bounded: a tick interval of 0 would never fire and a huge one would wrap
// the tick arithmetic; a top list longer than 16 floods the log.
struct Key {
  const char* name;
  enum class Kind { Bool, Whole, Fraction } kind;
  void* field;
  double low;
  double high;
};

std::string jsonTypeName(const cJSON* item) {
  if (cJSON_IsBool(item)) return "a boolean";
  if (cJSON_IsNumber(item)) return "a number";
  if (cJSON_IsString(item)) return "a string";
  if (cJSON_IsArray(item)) return "an array";
  if (cJSON_IsObject(item)) return "an object";
  return "null";
}

// Shortest text that reads back as `value`, as a person would write it.
std::string numberText(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.15g", value);
  return text;
}

std::string fieldText(const Key& key) {
  switch (key.kind) {
    case Key::Kind::Bool:
      return *static_cast<bool*>(key.field) ? "true" : "false";
    case Key::Kind::Whole:
      return std::to_string(*static_cast<uint64_t*>(key.field));
    case Key::Kind::Fraction:
      return numberText(*static_cast<double*>(key.field));
  }
  return "";
}

class SectionReader {
 public:
  explicit SectionReader(ExtensionConfig& config) : config(config) {}

  void readExtension(const cJSON* object, const char* extension, const std::vector<Key>& keys);
  void mistake(const std::string& text) { config.mistakes.push_back(text); }

 private:
  void readKey(const cJSON* item, const std::string& where, const Key& key);
  bool readNumber(const cJSON* item, const std::string& where, const Key& key, double& value);

  ExtensionConfig& config;
};

void SectionReader::readExtension(const cJSON* object, const char* extension,
                                  const std::vector<Key>& keys) {
  const std::string where = std::string(kSection) + " \"" + extension + "\"";
  if (!cJSON_IsObject(object)) {
    mistake(where + " is " + jsonTypeName(object) + ", not an object; the extension stays off");
    return;
  }
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, object) {
    const Key* match = nullptr;
    for (const Key& key : keys) {
      if (std::strcmp(key.name, item->string) == 0) match = &key;
    }
    if (match == nullptr) {
      mistake(where + ": unknown key \"" + item->string + "\" ignored");
    } else {
      readKey(item, where, *match);
    }
  }
}

void SectionReader::readKey(const cJSON* item, const std::string& where, const Key& key) {
  const std::string at = where + " \"" + key.name + "\" ";
  if (key.kind == Key::Kind::Bool) {
    if (cJSON_IsBool(item)) {
      *static_cast<bool*>(key.field) = cJSON_IsTrue(item);
    } else {
      mistake(at + "is " + jsonTypeName(item) + ", not true or false; using " + fieldText(key));
    }
    return;
  }
  double value = 0;
  if (!readNumber(item, at, key, value)) return;
  if (key.kind == Key::Kind::Whole) {
    *static_cast<uint64_t*>(key.field) = static_cast<uint64_t>(value);
  } else {
    *static_cast<double*>(key.field) = value;
  }
}

// False (with the mistake noted, the field at its default) for a value that
// is not a number, or not a whole one where a count is asked for. A number
// out of bounds comes back as the nearest bound.
bool SectionReader::readNumber(const cJSON* item, const std::string& at, const Key& key,
                               double& value) {
  if (!cJSON_IsNumber(item)) {
    mistake(at + "is " + jsonTypeName(item) + ", not a number; using " + fieldText(key));
    return false;
  }
  value = item->valuedouble;
  if (key.kind == Key::Kind::Whole && value != std::floor(value)) {
    mistake(at + "is " + numberText(value) + ", not a whole number; using " + fieldText(key));
    return false;
  }
  if (value < key.low || value > key.high) {
    const double bound = value < key.low ? key.low : key.high;
    mistake(at + "is " + numberText(value) + ", " + (value < key.low ? "below " : "above ") +
            numberText(bound) + "; using " + numberText(bound));
    value = bound;
  }
  return true;
}

}  // namespace

ExtensionConfig ExtensionConfig::parse(const cJSON* section) {
  ExtensionConfig config;
  if (section == nullptr) return config;
  config.present = true;
  SectionReader reader(config);
  if (!cJSON_IsObject(section)) {
    reader.mistake(std::string(kSection) + " is " + jsonTypeName(section) +
                   ", not an object; every extension stays off");
    return config;
  }
  uint64_t topProcesses = config.crossingSnapshot.topProcesses;
  using K = Key::Kind;
  auto& snapshot = config.crossingSnapshot;
  auto& cost = config.daemonCost;
  auto& pressure = config.pressure;
  const struct {
    const char* name;
    std::vector<Key> keys;
  } extensions[] = {
      {"CrossingSnapshot",
       {{"Active", K::Bool, &snapshot.active, 0, 0},
        {"Top_processes", K::Whole, &topProcesses, 1, 16},
        {"On_still_above", K::Bool, &snapshot.onStillAbove, 0, 0}}},
      {"DaemonCost",
       {{"Active", K::Bool, &cost.active, 0, 0},
        {"Interval_ticks", K::Whole, &cost.intervalTicks, 1, 86400},
        {"Tick_budget_ms", K::Whole, &cost.tickBudgetMs, 0, 600000}}},
      {"SmapsRollupPss", {{"Active", K::Bool, &config.smapsRollupPss.active, 0, 0}}},
      {"Pressure",
       {{"Active", K::Bool, &pressure.active, 0, 0},
        {"Sample_interval_ticks", K::Whole, &pressure.sampleIntervalTicks, 1, 86400},
        {"Metric_logcat_interval_ticks", K::Whole, &pressure.logcatIntervalTicks, 1, 86400},
        {"Metric_report_interval_ticks", K::Whole, &pressure.reportIntervalTicks, 1, 86400},
        {"Memory_some_avg10_threshold", K::Fraction, &pressure.memorySomeAvg10Threshold, 0, 100},
        {"Memory_full_avg10_threshold", K::Fraction, &pressure.memoryFullAvg10Threshold, 0, 100}}},
  };
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, section) {
    bool known = false;
    for (const auto& extension : extensions) {
      if (std::strcmp(extension.name, item->string) != 0) continue;
      known = true;
      reader.readExtension(item, extension.name, extension.keys);
    }
    if (!known) {
      reader.mistake(std::string(kSection) + ": unknown key \"" + item->string + "\" ignored");
    }
  }
  snapshot.topProcesses = static_cast<unsigned>(topProcesses);
  return config;
}

bool ExtensionConfig::isActive(const std::string& extension) const {
  if (extension == "CrossingSnapshot") return crossingSnapshot.active;
  if (extension == "DaemonCost") return daemonCost.active;
  if (extension == "SmapsRollupPss") return smapsRollupPss.active;
  if (extension == "Pressure") return pressure.active;
  return false;
}

std::vector<std::string> ExtensionConfig::summaryLines() const {
  auto onOff = [](bool active) { return std::string(active ? "on" : "off"); };
  std::vector<std::string> lines;
  lines.push_back("extension CrossingSnapshot " + onOff(crossingSnapshot.active) + ", top " +
                  std::to_string(crossingSnapshot.topProcesses) + " processes, on still above " +
                  onOff(crossingSnapshot.onStillAbove));
  lines.push_back("extension DaemonCost " + onOff(daemonCost.active) + ", every " +
                  std::to_string(daemonCost.intervalTicks) + " ticks, tick budget " +
                  (daemonCost.tickBudgetMs == 0 ? std::string("none")
                                                : std::to_string(daemonCost.tickBudgetMs) + " ms"));
  lines.push_back("extension SmapsRollupPss " + onOff(smapsRollupPss.active));
  lines.push_back("extension Pressure " + onOff(pressure.active) + ", sample every " +
                  std::to_string(pressure.sampleIntervalTicks) + " ticks, logcat every " +
                  std::to_string(pressure.logcatIntervalTicks) + " ticks, report every " +
                  std::to_string(pressure.reportIntervalTicks) + " ticks, some avg10 threshold " +
                  numberText(pressure.memorySomeAvg10Threshold) + "%, full avg10 threshold " +
                  numberText(pressure.memoryFullAvg10Threshold) + "%");
  return lines;
}

}  // namespace halvexd
