// Logs a line of some priorities.
#include <fa_platform/dlog.h>

int main()
{
    __dlog_print(0, 5, "FA_API", "a warning");
    __dlog_print(0, 6, "FA_API", "an error\n");
    __dlog_print(0, 7, "FA_API", "the end");
}
