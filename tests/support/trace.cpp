#include "support/trace.h"

#include <glib.h>

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
    using testing::internal::edit_distance::CreateUnifiedDiff;
    return expected == happened ? testing::AssertionSuccess()
                                : testing::AssertionFailure()
                                      << "what differs (- expected, + happened):\n"
                                      << CreateUnifiedDiff(Split(expected), Split(happened));
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
