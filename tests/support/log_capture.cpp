#include "support/log_capture.h"

#include <fa_platform/simulation.h>

#include <regex>
#include <utility>

namespace
{

std::string Describe(int buffer, int priority, const std::string& tag, const std::string& text)
{
    static const std::regex form("(\\w+): (\\w+)\\((\\d+)\\) > ([^]*)\n");
    constexpr char kLetters[] = "??VDIWEF";
    std::smatch match;
    if (buffer != 2 || tag != "FA_API" || priority < 3 || priority > 6 ||
        !std::regex_match(text, match, form)) {
        return "BAD " + std::to_string(buffer) + "/" + tag + "/" + text;
    }
    return std::string(1, kLetters[priority]) + " " + match[2].str() + ": " + match[4].str();
}

}  // namespace

LogCapture::LogCapture()
{
    fa_platform::SetLogSink(
        [this](int buffer, int priority, const std::string& tag, const std::string& text) {
            const std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(Describe(buffer, priority, tag, text));
        });
}

LogCapture::~LogCapture()
{
    fa_platform::SetLogSink({});
}

std::vector<std::string> LogCapture::Take()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(lines, {});
}
