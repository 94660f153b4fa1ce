// The video enhancement library.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Reads the local-dimming version of `selector` (7 or 8) into *value, which keeps what it holds
// where the set has none. Returns 0 on success.
int ve_start_local_dimming_test(unsigned char selector, unsigned int* value);

#ifdef __cplusplus
}
#endif
