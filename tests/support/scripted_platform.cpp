#include "support/scripted_platform.h"

#include <cstdio>
#include <ctime>

#include "support/platform_log.h"
#include "support/whole_platform.h"

ScriptedPlatform platform;

namespace
{

template <typename Number>
int Give(const std::string& query, Number* number)
{
    const Answer<std::string>& answer = platform.answers[query];
    *number =
        answer.written ? static_cast<Number>(std::stoll(*answer.written, nullptr, 0)) : *number;
    return answer.result;
}

// Fills a buffer that held only zero bytes before.
int Fill(const std::string& query, char* buffer, std::size_t size)
{
    if (std::count(buffer, buffer + size, '\0') != std::ptrdiff_t(size)) {
        Note("the buffer is not clear");
    }
    const Answer<std::string>& answer = platform.answers[query];
    answer.written.value_or("").copy(buffer, size);
    return answer.result;
}

class ScriptedPanel : public IDisplayPanel
{
public:
    int getTconDataVersion(char* buffer, int size) override
    {
        Note(Format("platform: getTconDataVersion(%d)", size));
        return Fill("tcon", buffer, std::size_t(size));
    }
};

}  // namespace

int system_info_get_value_int(int key, int* value)
{
    Note(Format("platform: system_info_get_value_int(%d, %d)", key, *value));
    platform.ints.emplace_back();  // a query too many fails
    const Answer<int> answer = platform.ints.front();
    platform.ints.pop_front();
    *value = answer.written.value_or(*value);
    return answer.result;
}

int system_info_get_value_string(int key, char** value)
{
    Note(Format("platform: system_info_get_value_string(%d, %s)", key, *value ? "a text" : "null"));
    const Answer<std::string>& answer = platform.answers[std::to_string(key)];
    *value = answer.written ? strdup(answer.written->c_str()) : *value;
    return answer.result;
}

int system_info_get_custom_bool(const char* key, bool* value)
{
    Note(Format("platform: system_info_get_custom_bool(%s, %d)", key, *value));
    return Give("bluetooth", value);
}

int bt_adapter_get_chip_version(int* version)
{
    Note(Format("platform: bt_adapter_get_chip_version(%d)", *version));
    return Give("chip", version);
}

IDisplayPanel* IDisplayPanel::getInstance()
{
    Note("platform: IDisplayPanel::getInstance");
    static ScriptedPanel panel;
    return platform.answers["panel"].result == 0 ? &panel : nullptr;
}

int ve_start_local_dimming_test(unsigned char selector, unsigned int* value)
{
    Note(Format("platform: ve_start_local_dimming_test(%d, %X)", selector, *value));
    return Give(std::to_string(selector), value);
}

int factory_get_option_string_data(int option, char* buffer, unsigned int* length)
{
    Note(Format("platform: factory_get_option_string_data(%d, %u)", option, *length));
    return Fill("option", buffer, 128);
}

FCBlockProfiler::FCBlockProfiler(const char* file, int line, const char* function)
{
    const bool here = SourceHolds("PelkoAppClientLogger", line, "FCBlockProfiler");
    Note(Format("platform: FCBlockProfiler(%s, %s)%s", file, function, here ? "" : " elsewhere"));
}

FCBlockProfiler::~FCBlockProfiler()
{
    Note("platform: ~FCBlockProfiler");
}

int menu_print(int channel, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int printed = std::vprintf(format, values) + std::printf("%s", channel == 1 ? "" : "?");
    va_end(values);
    std::fflush(stdout);
    return printed;
}

// The C library's: the link's folder is not ours to write to, and a pause takes no time.
ssize_t readlink(const char* path, char* buffer, size_t size)
{
    Note(Format("platform: readlink(%s, %zu)", path, size));
    const Answer<std::string>& link = platform.answers["link"];
    return link.written ? static_cast<ssize_t>(link.written->copy(buffer, size)) : -1;
}

int nanosleep(const timespec* pause, timespec* /*left*/)
{
    Note(Format("pause of %ld ms", long(pause->tv_sec) * 1000 + pause->tv_nsec / 1000000));
    return 0;
}
