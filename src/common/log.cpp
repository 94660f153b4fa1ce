#include "common/log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace fa
{

void PrintOnStandardOutput(const char* format, ...)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);

    va_list values;
    va_start(values, format);
    flockfile(stdout);
    std::printf("AUTOMATION[%ld.%03ld][T %ld] ", static_cast<long>(now.tv_sec),
                static_cast<long>(now.tv_nsec / 1000000), static_cast<long>(gettid()));
    std::vprintf(format, values);
    std::putchar('\n');
    funlockfile(stdout);
    va_end(values);
}

}  // namespace fa
