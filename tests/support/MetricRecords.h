// Configuration records and the exact metric records they lead to, for
// monitor tests that check a whole report.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestSupport.h"

namespace halvexd::testing {

// The device fields every structured record ends with, written empty; a
// region, when set, follows as ":<region>".
inline const std::string kDeviceTail =
    ",_softwareVersion=;SY,_deviceType=;SY,_platform=;SY,_model=;SY,_buildType=;SY,"
    "_marketPlaceId=;SY,_countryOfResidence=;SY,_deviceLanguage=;SY,_otaGroupName=;SY,"
    "_timeZone=;SY,_deviceId=;SY,_customerId=;SY,_hardware=;SY";

// Adds a configuration record for `publishName`: plain interface `plain`,
// structured interface `vedrix` with group "grpA", schema "schema.<name>",
// key tag "metric" and value tag "value".
void configureMetricRecord(const std::string& publishName, bool plain, bool vedrix);

// Adds a record for multi-field samples of `publishName`: structured
// interface active with group "grpA", schema "schema.<name>" and one "str"
// descriptor per field, in the order given, whose tag is the field name
// itself. A system-health name keeps its plain interface inactive, as its
// structured record is written only then.
void configureSystemHealthRecord(const std::string& publishName,
                                 const std::vector<std::string>& fields, bool plain = false);

// "<prefix>:<publish>:name=value;CT;1,...:NR", entries in key order.
std::string plainRecord(const std::string& prefix, const std::string& publishName,
                        const std::map<std::string, std::string>& values);

// The integer structured record of one metric under configureMetricRecord's
// labels.
std::string structuredRecord(const std::string& publishName, const std::string& metricName,
                             const std::string& value, const std::string& region);

// The pair-vector structured record of one sample with integer-free string
// fields "tag=value;SY", in the order given.
std::string pairRecord(const std::string& publishName,
                       const std::vector<std::pair<std::string, std::string>>& fields,
                       const std::string& region);

// The system-health record under configureSystemHealthRecord's labels;
// `fields` in key order.
std::string systemHealthRecord(const std::string& publishName,
                               const std::vector<std::pair<std::string, std::string>>& fields,
                               const std::string& region);

std::vector<std::string> messagesOf(const std::vector<LogRecord>& records);

}  // namespace halvexd::testing
