// The Bluetooth adapter.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Reads the version of the Bluetooth chip. Returns 0 on success.
int bt_adapter_get_chip_version(int* version);

#ifdef __cplusplus
}
#endif
