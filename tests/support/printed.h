// What the library prints on standard output.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <regex>

#include "support/trace.h"

// The messages that the function prints, each after "> " in place of the time and the thread, which
// have to be the present and this one; a line of any other form stands as it came.
template <typename Function>
std::string Printed(Function function)
{
    const auto now = [] {
        const auto time = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    };
    static const std::regex form(R"(AUTOMATION\[(\d+)\.(\d{3})\]\[T (\d+)\] (.*))");
    const auto begin = now();
    testing::internal::CaptureStdout();
    function();
    std::string messages;
    for (const std::string& line : Split(testing::internal::GetCapturedStdout())) {
        std::smatch part;
        const bool good = std::regex_match(line, part, form) && std::stol(part[3]) == gettid() &&
                          std::stoll(part[1].str() + part[2].str()) >= begin &&
                          std::stoll(part[1].str() + part[2].str()) <= now();
        messages += (good ? "> " + part[4].str() : line) + "\n";
    }
    return messages;
}
