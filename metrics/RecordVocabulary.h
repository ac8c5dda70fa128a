// The words of the metric records, written in one place: the metric logger
// builds records from them, and the tools that read records back take them
// from here.
//
// Plain record:      <prefix>:<publish name>:<name>=<value>;CT;1,...:NR
//                    (<prefix> is the owner's name followed by "Tablet")
// Structured record: <group>:<schema>:100:<body><device fields>[:<region>]
// System-health field lists join their items with "|" and their entries
// with " ".
#pragma once

#include <string>

namespace halvexd::records {

// Tag of every record line in the metrics log buffer.
inline constexpr char kMetricsTag[] = "metrics.halvexd";

// Appended to the owner's name in a plain record's prefix. Every device
// reports as a tablet.
inline constexpr char kDeviceSuffix[] = "Tablet";

// Plain records: every entry ends with the entry ending (whose letters are
// the type the decoder reports), the record with the plain ending.
inline constexpr char kPlainEntryEnding[] = ";CT;1";
inline constexpr char kPlainTypeLetters[] = "CT";
inline constexpr char kPlainEnding[] = ":NR";

// Structured records: the header "<group>:<schema>" ends with this.
inline constexpr char kStructuredHeaderEnding[] = ":100:";

// Type tags of structured values; the letters after ';' are the type.
inline constexpr char kStringTag[] = ";SY";
inline constexpr char kIntegerTag[] = ";IN";
inline constexpr char kFloatTag[] = ";FL";
inline constexpr char kBooleanTag[] = ";BO";
inline constexpr char kTimeTag[] = ";TI";
inline constexpr const char* kTypeTags[] = {kStringTag, kIntegerTag, kFloatTag, kBooleanTag,
                                            kTimeTag};

// The device fields every structured record ends with, in this order, each
// written "," <field> "=" with an empty string value. The daemon knows none
// of them; the collecting service fills them in.
inline constexpr const char* kDeviceFields[] = {
    "_softwareVersion", "_deviceType",         "_platform",       "_model",        "_buildType",
    "_marketPlaceId",   "_countryOfResidence", "_deviceLanguage", "_otaGroupName", "_timeZone",
    "_deviceId",        "_customerId",         "_hardware",
};

// Between the device fields and the region, when a region is set.
inline constexpr char kRegionSeparator = ':';

// The device fields as a structured record writes them, between its body and
// its region: "," <field> "=" and the string tag, for each field in order.
inline const std::string& deviceFieldsText() {
  static const std::string kText = [] {
    std::string text;
    for (const char* field : kDeviceFields) {
      text += ",";
      text += field;
      text += "=";
      text += kStringTag;
    }
    return text;
  }();
  return kText;
}

// Separators of the system-health field lists: between the items of one
// entry (and between the entries of the keys, type and percentile lists),
// and between the entries of a value list.
inline constexpr char kFieldSeparator[] = "|";
inline constexpr char kItemSeparator[] = " ";

}  // namespace halvexd::records
