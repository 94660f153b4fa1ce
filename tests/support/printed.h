// What the library prints on standard output.
#pragma once

#include <chrono>

#include "support/trace.h"

// What the function prints, with "> " in the place of each time and thread; they have to be the
// present and this one.
template <typename Function>
std::string Printed(Function function)
{
    const auto now = [] {
        const auto time = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    };
    const std::regex form(Format(R"(AUTOMATION\[(\d+)\.(\d{3})\]\[T %d\] )", gettid()));
    const auto begin = now();
    testing::internal::CaptureStdout();
    function();
    std::string printed = testing::internal::GetCapturedStdout();
    for (std::smatch part; std::regex_search(printed, part, form);) {
        const auto time = std::stoll(part[1].str() + part[2].str());
        const bool present = begin <= time && time <= now();
        printed.replace(static_cast<std::size_t>(part.position()), part[0].str().size(),
                        present ? "> " : "not now: ");
    }
    return printed;
}
