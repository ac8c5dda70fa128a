// Host build's declaration of the one property call halvexd makes.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// Value of `key` read as a truth word; `default_value` when the key is
// absent or its value is not one of the recognised words.
bool property_get_bool(const char* key, bool default_value);

#ifdef __cplusplus
}
#endif
