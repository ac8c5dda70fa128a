// Host build's declaration of the one property call halvexd makes.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Value of `key` read as a truth word: 1 for "1", "y", "yes", "on", "true",
// 0 for "0", "n", "no", "off", "false"; `default_value` when the key is
// absent or its value is not one of those words. Declared with the platform's
// types (int8_t, not bool) so that callers compile against either header.
int8_t property_get_bool(const char* key, int8_t default_value);

#ifdef __cplusplus
}
#endif
