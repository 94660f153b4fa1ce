// The debug menu console.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Shows a text on the debug menu console. `channel` is always 1 here.
int menu_print(int channel, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Waits for the engineer's choice and returns it. At the end of input there is nobody to choose any
// more: the answer is 99, the choice that leaves every menu.
int waitkeyresponse(void);

#ifdef __cplusplus
}
#endif
