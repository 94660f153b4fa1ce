// System information of the set.
#pragma once

#ifdef __cplusplus
extern "C" {
#else
#include <stdbool.h>
#endif

// Each query returns 0 and writes the value, or returns another number where the set has no such
// value. Any thread.
int system_info_get_value_int(int key, int* value);

// On success *value is a newly allocated string, which the caller releases with free().
int system_info_get_value_string(int key, char** value);

// Reads a feature flag by its full key, such as "com.velmora/featureconf/bluetooth.support".
int system_info_get_custom_bool(const char* key, bool* value);

#ifdef __cplusplus
}
#endif
