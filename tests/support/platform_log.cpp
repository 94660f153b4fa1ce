#include "support/platform_log.h"

#include <fa_platform/dlog.h>
#include <glib.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <tuple>
#include <utility>

static std::recursive_mutex mutex;
static std::function<void(const std::string&)> watch;

bool SourceHolds(const std::string& source, int number, const std::string& text)
{
    for (const auto& file : std::filesystem::recursive_directory_iterator(FA_SOURCES)) {
        if (file.path().stem() == source) {
            std::ifstream code(file.path());
            std::string line;
            for (int i = 1; std::getline(code, line); ++i) {
                if (std::abs(i - number) <= 3 && line.find(text) != std::string::npos) {
                    return true;
                }
            }
        }
    }
    return false;
}

static std::string Describe(const std::string& text)
{
    char source[32];
    char function[64];
    int priority = 0;
    int number = 0;
    int message = 0;
    std::sscanf(text.c_str(), "2/%d/FA_API/%31[^:]: %63[^(](%d) > %n", &priority, source, function,
                &number, &message);
    const bool good = message > 0 && priority >= 3 && priority <= 6 && text.back() == '\n' &&
                      SourceHolds(source, number, "FA_LOG");
    return good ? Format("%c %s %s: ", "DIWE"[priority - 3], source, function) +
                      text.substr(std::size_t(message), text.size() - std::size_t(message) - 1)
                : "BAD " + text;
}

// Takes the platform's place.
int __dlog_print(int buffer, int priority, const char* tag, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    g_autofree char* message = g_strdup_vprintf(format, values);
    va_end(values);
    const std::lock_guard<std::recursive_mutex> lock(mutex);
    // A long packet logs the same again and again.
    static std::tuple<int, int, std::string, std::string> last;
    static std::string line;
    if (last != std::tuple<int, int, const char*, const char*>(buffer, priority, tag, message)) {
        last = {buffer, priority, tag, message};
        line = Describe(Format("%d/%d/%s/%s", buffer, priority, tag, message));
    }
    watch ? watch(line) : Note(line);
    return static_cast<int>(line.size());
}

void WatchLog(std::function<void(const std::string&)> watcher)
{
    const std::lock_guard<std::recursive_mutex> lock(mutex);
    watch = std::move(watcher);
}

std::string Logged(const std::string& source, const std::string& function,
                   const std::string& messages)
{
    std::string lines;
    std::istringstream stream(messages);
    for (std::string message; std::getline(stream, message);) {
        lines += message.substr(0, 2) + source + " " + function + ": " + message.substr(2) + "\n";
    }
    return lines;
}
