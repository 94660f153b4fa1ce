#include "support/trace.h"

#include <glib.h>

#include <algorithm>
#include <cstdarg>
#include <fstream>
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
    const auto [expectedLine, line] =
        std::mismatch(before.begin(), before.end(), now.begin(), now.end());
    const auto at = line - now.begin();
    auto failure = testing::AssertionFailure()
                   << "line " << at + 1 << " differs (- expected, + happened):";
    const auto show = [&](const char* mark, auto first, auto end, std::ptrdiff_t most) {
        for (; most > 0 && first != end; ++first, --most) {
            failure << "\n" << mark << *first;
        }
    };
    show("    ", line - std::min<std::ptrdiff_t>(at, 3), line, 3);
    show("  - ", expectedLine, before.end(), 3);
    show("  + ", line, now.end(), 3);
    return failure;
}

std::string Format(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    g_autofree char* text = g_strdup_vprintf(format, values);
    va_end(values);
    return text;
}

std::string Section(const std::string& file, const std::string& title)
{
    std::stringstream all;
    all << "\n" << std::ifstream(file).rdbuf() << "\n== ";
    const std::string text = all.str();
    const std::size_t begin = text.find("\n== " + title + "\n") + title.size() + 5;
    return text.substr(begin, text.find("\n== ", begin) - begin);
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
