#include "support/platform_log.h"

#include <fa_platform/dlog.h>
#include <glib.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

static std::recursive_mutex mutex;
static std::function<void(const std::string&)> watch;

bool SourceHolds(const std::string& source, int number, const std::string& text)
{
    static std::multimap<std::string, Lines> files;
    if (files.empty()) {
        for (const auto& file : std::filesystem::recursive_directory_iterator(FA_SOURCES)) {
            std::stringstream all;
            all << std::ifstream(file.path()).rdbuf();
            files.emplace(file.path().stem().string(), Split(all.str()));
        }
    }
    for (auto [file, end] = files.equal_range(source); file != end; ++file) {
        const Lines& lines = file->second;
        for (int i = std::max(number - 4, 0); i < std::min(number + 3, int(lines.size())); ++i) {
            if (lines[std::size_t(i)].find(text) != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

static std::string Describe(int buffer, int priority, const char* tag, const char* text)
{
    char source[32];
    char function[64];
    int number = 0;
    int message = 0;
    std::sscanf(text, "%31[^:]: %63[^(](%d) > %n", source, function, &number, &message);
    const auto length = static_cast<int>(std::strlen(text));
    const bool good = buffer == 2 && std::strcmp(tag, "FA_API") == 0 && message > 0 &&
                      length > message && text[length - 1] == '\n' &&
                      SourceHolds(source, number, "FA_LOG");
    const char letter = priority < 3 || priority > 6 ? '?' : "DIWE"[priority - 3];
    return good ? Format("%c %s %s: %.*s", letter, source, function, length - message - 1,
                         text + message)
                : Format("BAD %d/%d/%s/%s", buffer, priority, tag, text);
}

// Takes the platform's place.
int __dlog_print(int buffer, int priority, const char* tag, const char* format, ...)
{
    const std::lock_guard<std::recursive_mutex> lock(mutex);
    va_list values;
    va_start(values, format);
    g_autofree char* text = g_strdup_vprintf(format, values);
    va_end(values);
    // A long packet logs the same again and again.
    static std::tuple<int, int, std::string, std::string> last;
    static std::string line;
    if (last != std::tuple<int, int, const char*, const char*>(buffer, priority, tag, text)) {
        last = {buffer, priority, tag, text};
        line = Describe(buffer, priority, tag, text);
    }
    watch ? watch(line) : Note(line);
    return static_cast<int>(std::strlen(text));
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
