// What the library prints on standard output.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>

#include "support/trace.h"

inline long long Milliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

// The messages that the function prints, each after "> " in place of the time and the thread, which
// have to be the present and this one; a line of any other form stands as it came.
template <typename Function>
std::string Printed(Function function)
{
    const long long begin = Milliseconds();
    testing::internal::CaptureStdout();
    function();
    std::string messages;
    for (const std::string& line : Split(testing::internal::GetCapturedStdout())) {
        long seconds = 0;
        long milliseconds = 0;
        std::sscanf(line.c_str(), "AUTOMATION[%ld.%ld]", &seconds, &milliseconds);
        const std::string prefix = Format("AUTOMATION[%ld.%03ld][T %ld] ", seconds, milliseconds,
                                          static_cast<long>(gettid()));
        const long long time = seconds * 1000LL + milliseconds;
        const bool good = line.compare(0, prefix.size(), prefix) == 0 && milliseconds < 1000 &&
                          time >= begin && time <= Milliseconds();
        messages += (good ? "> " + line.substr(prefix.size()) : line) + "\n";
    }
    return messages;
}
