// The platform log, on standard error.
#include <fa_platform/dlog.h>
#include <fa_platform/simulation.h>
#include <glib.h>
#include <unistd.h>

#include <cstdarg>
#include <mutex>

namespace
{

std::mutex sinkMutex;
fa_platform::LogSink sink;

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
    constexpr char kLetters[] = "??VDIWEF";
    const char letter = priority >= 0 && priority <= 7 ? kLetters[priority] : '?';
    std::string line = std::string(1, letter) + "/" + tag + ": " + text;
    if (line.back() != '\n') {
        line += '\n';
    }
    // One write for each line keeps the lines of several processes whole.
    return static_cast<int>(write(STDERR_FILENO, line.data(), line.size()));
}
