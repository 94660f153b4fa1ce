// The platform log.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Writes one line to log buffer `log_id` under `tag`. Priorities: 3 debug, 4 info, 6 error.
// Returns the number of characters written, or a negative number. Any thread.
int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif
