#include "support/trace.h"

#include <glib.h>

#include <algorithm>
#include <cstdarg>
#include <mutex>
#include <sstream>
#include <utility>

static std::mutex mutex;
static std::string trace;

void Note(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(mutex);
    trace += line + "\n";
}

std::string TakeTrace()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(trace, {});
}

testing::AssertionResult Same(const std::string& expected, const std::string& happened)
{
    if (expected == happened) {
        return testing::AssertionSuccess();
    }
    const std::vector<std::string> before = Split(expected);
    const std::vector<std::string> now = Split(happened);
    std::size_t at = 0;
    while (at < before.size() && at < now.size() && before[at] == now[at]) {
        ++at;
    }
    auto failure = testing::AssertionFailure() << "line " << at + 1 << " differs:";
    for (std::size_t i = at < 3 ? 0 : at - 3; i < at; ++i) {
        failure << "\n    " << before[i];
    }
    for (const auto& [mark, lines] : {std::pair("  - ", &before), std::pair("  + ", &now)}) {
        for (std::size_t i = at; i < std::min(at + 3, lines->size()); ++i) {
            failure << "\n" << mark << (*lines)[i];
        }
    }
    return failure << "\n  (- expected, + happened)";
}

std::string Format(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    g_autofree char* text = g_strdup_vprintf(format, values);
    va_end(values);
    return text;
}

std::vector<std::string> Split(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + (stream.eof() ? " (no line feed)" : ""));
    }
    return lines;
}
