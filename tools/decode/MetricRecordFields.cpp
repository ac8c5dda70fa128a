// The FIELDs of a structured record's multi-field body: split by the
// configured descriptors, or as best it can without them.
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "metrics/MetricLogger.h"
#include "tools/common/DaemonPublishNames.h"
#include "tools/decode/MetricRecordParser.h"
#include "tools/decode/RecordText.h"

namespace halvexd::tools {

namespace {

// One FIELD the daemon may write for a record: its descriptor and what may
// follow it.
struct FieldSlot {
  const HalvexConfig::VedrixMetric* descriptor;
  std::string tagText;  // "<tag>="
  std::string typeTag;  // ";IN" ... or empty for a type without one
  bool commaAfter;      // the FIELD may be followed by ','
  bool mayEnd;          // the body may end right after the FIELD
};

// Splits a body into FIELDs that fit `slots` in order, any of them left out.
// Values are read shortest first; a reading that cannot finish the body is
// undone, so a value holding a separator is read whole when only that reading
// fits. The step bound keeps bodies built to defeat it from taking long.
class FieldSplitter {
 public:
  struct Chosen {
    size_t slot;
    size_t valueAt;
    size_t valueEnd;
  };

  FieldSplitter(const std::string& body, const std::vector<FieldSlot>& slots)
      : body(body), slots(slots) {}

  // True with `chosen` filled, one entry per FIELD in body order.
  bool split() {
    chosen.clear();
    return from(0, 0);
  }

  bool exhausted() const { return steps > kMaxSteps; }

  std::vector<Chosen> chosen;

 private:
  static constexpr size_t kMaxSteps = 200000;

  bool from(size_t slot, size_t at) {
    if (at == body.size()) return !chosen.empty();
    if (slot == slots.size() || ++steps > kMaxSteps) return false;
    if (failed.count({slot, at}) != 0) return false;
    const FieldSlot& field = slots[slot];
    if (body.compare(at, field.tagText.size(), field.tagText) == 0) {
      const size_t valueAt = at + field.tagText.size();
      if (field.commaAfter) {
        const std::string ending = field.typeTag + ",";
        for (size_t end = body.find(ending, valueAt); end != std::string::npos;
             end = body.find(ending, end + 1)) {
          chosen.push_back({slot, valueAt, end});
          if (from(slot + 1, end + ending.size())) return true;
          chosen.pop_back();
          if (exhausted()) return false;
        }
      }
      if (field.mayEnd && body.size() >= valueAt + field.typeTag.size() &&
          body.compare(body.size() - field.typeTag.size(), field.typeTag.size(), field.typeTag) ==
              0) {
        chosen.push_back({slot, valueAt, body.size() - field.typeTag.size()});
        return true;
      }
    }
    // Left out: a field without its descriptor writes nothing.
    if (from(slot + 1, at)) return true;
    failed.insert({slot, at});
    return false;
  }

  const std::string& body;
  const std::vector<FieldSlot>& slots;
  std::set<std::pair<size_t, size_t>> failed;
  size_t steps = 0;
};

bool isSystemHealthName(const std::string& name) {
  for (const PublishNameUse& use : daemonPublishNames()) {
    if (use.publishName == name && use.kind == PublishNameUse::Kind::SystemHealth) return true;
  }
  return false;
}

}  // namespace

bool MetricRecordParser::parseFieldsByDescriptors(const std::string& body,
                                                  const HalvexConfig::MonitorConfig& configured,
                                                  DecodedRecord& record, std::string& error) {
  const std::vector<HalvexConfig::VedrixMetric>& metrics = configured.vedrixMetricInterface.metrics;
  const bool health = isSystemHealthName(configured.metricName);
  std::vector<FieldSlot> slots;
  if (health) {
    // The system-health logger writes its fields in field-name order, each
    // with the last descriptor of that name, ',' after every one but the
    // last field sent (which may have had no descriptor).
    std::map<std::string, const HalvexConfig::VedrixMetric*> byName;
    for (const HalvexConfig::VedrixMetric& metric : metrics) byName[metric.name] = &metric;
    for (const auto& [name, metric] : byName) {
      slots.push_back({metric, metric->dimensionTag + "=", MetricLogger::vedrixTypeTag(metric->type), true, true});
    }
  } else {
    // The multi-field body: descriptors by position, ',' after every one but
    // the last position, whether its field was written or not.
    for (size_t i = 0; i < metrics.size(); ++i) {
      const bool last = i + 1 == metrics.size();
      slots.push_back({&metrics[i], metrics[i].dimensionTag + "=", MetricLogger::vedrixTypeTag(metrics[i].type),
                       !last, last});
    }
  }
  const std::string order = health ? "in field-name order" : "in descriptor order";
  if (slots.empty()) {
    error = "configuration record " + quoted(configured.metricName) +
            " has no descriptors, so no multi-field body fits it";
    return false;
  }
  FieldSplitter splitter(body, slots);
  if (!splitter.split()) {
    error = splitter.exhausted()
                ? "body " + quoted(body) + " has too many readings to split by the descriptors of " +
                      quoted(configured.metricName)
                : "body " + quoted(body) + " does not fit the descriptors of " +
                      quoted(configured.metricName) + " (FIELDs \"<tag>=<value><type tag>\" " +
                      order + ")";
    return false;
  }
  for (const FieldSplitter::Chosen& chosen : splitter.chosen) {
    const FieldSlot& slot = slots[chosen.slot];
    DecodedValue value;
    value.metric = slot.descriptor->name;
    value.valueTag = slot.descriptor->dimensionTag;
    value.typeTag = slot.typeTag.empty() ? std::string() : slot.typeTag.substr(1);
    value.value = body.substr(chosen.valueAt, chosen.valueEnd - chosen.valueAt);
    record.values.push_back(value);
  }
  // A left-out last field leaves the ',' after the one before it.
  const FieldSplitter::Chosen& last = splitter.chosen.back();
  record.trailingComma = last.valueEnd + slots[last.slot].typeTag.size() != body.size();
  return true;
}

bool MetricRecordParser::parseFieldsBestEffort(const std::string& body, DecodedRecord& record,
                                               std::string& error) const {
  // Without the descriptors a FIELD ends at its type tag followed by ','; a
  // value may hold ',' of its own (process names do). FIELDs of a type
  // without a tag can only be told apart by ','.
  std::vector<std::string> fields;
  size_t start = 0;
  size_t i = 0;
  while (i + 3 <= body.size()) {
    if (isTypeTagAt(body, i) && (i + 3 == body.size() || body[i + 3] == ',')) {
      fields.push_back(body.substr(start, i + 3 - start));
      start = i + 4;
      i = start;
    } else {
      ++i;
    }
  }
  if (start < body.size()) {
    std::string rest = body.substr(start);
    size_t from = 0;
    while (true) {
      size_t comma = rest.find(',', from);
      fields.push_back(rest.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
      if (comma == std::string::npos) break;
      from = comma + 1;
    }
  } else if (start == body.size()) {
    // The body ended in a ',' after a tagged FIELD.
    fields.push_back(std::string());
  }
  // A left-out last FIELD leaves the comma after the one before it: the
  // daemon writes that on purpose, so it is read, and reported, not refused.
  if (fields.size() > 1 && fields.back().empty()) {
    record.trailingComma = true;
    fields.pop_back();
  }
  // A string value may hold ",", even ";IN," (process names are written as
  // they are): a piece without '=' that ends a string value continues the
  // FIELD before it.
  std::vector<std::string> merged;
  for (const std::string& field : fields) {
    if (!merged.empty() && !field.empty() && field.find('=') == std::string::npos &&
        ";" + typeTagAtEnd(field) == records::kStringTag) {
      merged.back() += "," + field;
    } else {
      merged.push_back(field);
    }
  }
  for (size_t index = 0; index < merged.size(); ++index) {
    const std::string& field = merged[index];
    const std::string position = "field " + std::to_string(index + 1);
    // Two commas in a row: the piece between them is an empty FIELD.
    if (field.empty() || field[0] == ',') {
      error = position + " is empty";
      return false;
    }
    size_t equals = field.find('=');
    if (equals == std::string::npos) {
      error = position + " " + quoted(field) + " has no '='";
      return false;
    }
    DecodedValue value;
    value.valueTag = field.substr(0, equals);
    if (value.valueTag.empty()) {
      error = position + " " + quoted(field) + " has an empty tag";
      return false;
    }
    value.typeTag = typeTagAtEnd(field);
    value.value = field.substr(equals + 1, field.size() - equals - 1 -
                                              (value.typeTag.empty() ? 0 : 3));
    value.metric = value.valueTag;
    record.values.push_back(value);
  }
  return true;
}

}  // namespace halvexd::tools
