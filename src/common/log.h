// Logging of both halves of the library: one platform log line for each message, and for some
// messages a copy on standard output. The compiler checks every format against its values.
//
// The texts of messages are an interface: people and scripts look for them in the log. They stay as
// they are, also where they look like a slip; such a place is marked with "sic".
#pragma once

#include <fa_platform/dlog.h>

#include <array>
#include <cstddef>

namespace fa
{

constexpr int kLogBuffer = 2;
constexpr char kLogTag[] = "FA_API";

enum LogPriority : int { kDebug = 3, kInfo = 4, kError = 6 };

// The part of `path` after its last folder separator.
constexpr const char* BaseName(const char* path)
{
    const char* base = path;
    for (; *path != '\0'; ++path) {
        if (*path == '/') {
            base = path + 1;
        }
    }
    return base;
}

// A source file's name without folder and extension, as log lines show it.
template <std::size_t N>
constexpr std::array<char, N> SourceName(const char (&path)[N])
{
    std::array<char, N> name{};
    std::size_t length = 0;
    for (const char* base = BaseName(path); *base != '\0' && *base != '.'; ++base) {
        name[length++] = *base;
    }
    return name;
}

// Prints a message and a line feed on standard output, after the time and the thread.
void PrintOnStandardOutput(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace fa

// Logs one message. The arguments after the priority are a format literal and its values; the line
// feed that ends every message is added here.
#define FA_LOG(priority, ...) FA_LOG_LINE(priority, __func__, __VA_ARGS__, "\n")

// The same from shared code, under the name of the exported function that it works for.
#define FA_LOG_FOR(function, priority, ...) FA_LOG_LINE(priority, function, __VA_ARGS__, "\n")

// The same with a copy on standard output.
#define FA_LOG_AND_PRINT(priority, ...) FA_LOG_AND_PRINT_FOR(__func__, priority, __VA_ARGS__)
#define FA_LOG_AND_PRINT_FOR(function, priority, ...) \
    do {                                              \
        FA_LOG_FOR(function, priority, __VA_ARGS__);  \
        ::fa::PrintOnStandardOutput(__VA_ARGS__);     \
    } while (false)

// The line feed is the last value: that leaves no macro call without a variable argument.
#define FA_LOG_LINE(priority, function, message, ...)                                           \
    do {                                                                                        \
        static constexpr auto fa_source_name = ::fa::SourceName(__FILE__);                      \
        __dlog_print(::fa::kLogBuffer, (priority), ::fa::kLogTag, "%s: %s(%d) > " message "%s", \
                     fa_source_name.data(), (function), __LINE__, __VA_ARGS__);                 \
    } while (false)
