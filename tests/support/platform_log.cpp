#include "support/platform_log.h"

#include <fa_platform/dlog.h>
#include <glib.h>

#include <filesystem>
#include <tuple>

static std::recursive_mutex mutex;
static std::function<void(const std::string&)> watch;

bool SourceHolds(const std::string& source, int number, const std::string& text)
{
    for (const auto& file : std::filesystem::recursive_directory_iterator(FA_SOURCES)) {
        std::ifstream code(file.path());
        std::string line;
        for (int i = 1; file.path().stem() == source && std::getline(code, line); ++i) {
            if (std::abs(i - number) <= 3 && line.find(text) != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

static std::string Describe(const std::string& text)
{
    static const std::regex form("2/([346])/FA_API/([^:]+): ([^(]+)\\((\\d+)\\) > ");
    std::smatch part;
    const bool good = std::regex_search(text, part, form, std::regex_constants::match_continuous) &&
                      text.back() == '\n' && SourceHolds(part[2], std::stoi(part[4]), "FA_LOG");
    const auto begin = std::size_t(part.length());
    return good ? "DI?E"[std::stoi(part[1]) - 3] + part.format(" $2 $3: ") +
                      text.substr(begin, text.size() - begin - 1)
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
    static const std::regex line("(.) ([^\n]*)\n?");
    return std::regex_replace(messages, line, "$1 " + source + " " + function + ": $2\n");
}
