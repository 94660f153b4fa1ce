// The platform log, on standard error; or in the file that FA_PLATFORM_LOG names. Where
// FA_PLATFORM_LOG_PRIORITY is one of the letters VDIWEF, lines of a lower priority are left out.
#include <fa_platform/dlog.h>
#include <fa_platform/simulation.h>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace
{

constexpr char kLetters[] = "??VDIWEF";

std::mutex sinkMutex;
fa_platform::LogSink sink;

// Standard error where there is no file, or it cannot be opened.
int OpenLog()
{
    const char* path = std::getenv("FA_PLATFORM_LOG");
    const int file =
        path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666) : -1;
    return file >= 0 ? file : STDERR_FILENO;
}

int MinPriority()
{
    const char* letter = std::getenv("FA_PLATFORM_LOG_PRIORITY");
    const char* found = letter != nullptr ? std::strchr(kLetters + 2, *letter) : nullptr;
    return found != nullptr && *found != '\0' ? static_cast<int>(found - kLetters) : G_MININT;
}

}  // namespace

namespace fa_platform
{

void SetLogSink(LogSink newSink)
{
    const std::lock_guard<std::mutex> lock(sinkMutex);
    sink = std::move(newSink);
}

}  // namespace fa_platform

int __dlog_print(int log_id, int priority, const char* tag, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    g_autofree char* formatted = g_strdup_vprintf(format, values);
    va_end(values);
    const std::string text = formatted != nullptr ? formatted : "";

    const std::lock_guard<std::mutex> lock(sinkMutex);
    if (sink) {
        sink(log_id, priority, tag, text);
        return static_cast<int>(text.size());
    }
    static const int log = OpenLog();
    static const int minPriority = MinPriority();
    if (priority < minPriority) {
        return 0;
    }
    const char letter = priority >= 0 && priority <= 7 ? kLetters[priority] : '?';
    std::string line = std::string(1, letter) + "/" + tag + ": " + text;
    if (line.back() != '\n') {
        line += '\n';
    }
    // One write for each line keeps the lines of several processes whole.
    return static_cast<int>(write(log, line.data(), line.size()));
}
