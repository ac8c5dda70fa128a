// The two cJSON calls the configuration loader needs beyond the cJSON
// interface itself. They carry C linkage and cJSON's naming so that a
// platform cJSON build which already exports them can stand in for this file.
#pragma once

#include <cjson/cJSON.h>

#ifdef __cplusplus
extern "C" {
#endif

// Largest file cJSON_Parse_File accepts, in bytes. The configuration may come
// from a writable partition; a bound keeps a runaway or hostile file from
// costing the daemon its memory at start-up. A real configuration is a few
// kilobytes.
#define HALVEXD_CJSON_MAX_FILE_BYTES (1024 * 1024)

// Reads the whole file at `path` (opened as given; callers resolve device
// paths first) and parses it as one JSON value. Returns the root item, to be
// freed with cJSON_Delete, or null when:
//   - `path` is null, or the file cannot be opened or read to its end;
//   - the file is larger than HALVEXD_CJSON_MAX_FILE_BYTES;
//   - the file holds a NUL byte (the text would otherwise end early at it,
//     and a valid prefix would hide whatever follows);
//   - the text is not one valid JSON value, white space aside: anything after
//     the value makes the file invalid. "White space" is the parser's: every
//     byte up to 0x20, so trailing control bytes (but no NUL) are accepted.
// `options` is reserved and must be 0. Nothing is logged; callers report.
cJSON* cJSON_Parse_File(const char* path, int options);

// Truth value of a boolean item: 1 for the JSON literal true, 0 for false and
// for anything else (null item, number, string, object, array, null).
int cJSON_get_bool_val(const cJSON* item);

#ifdef __cplusplus
}
#endif
