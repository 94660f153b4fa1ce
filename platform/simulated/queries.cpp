// Every query of the platform, answered from the profile. Outputs are written on success only.
#include <fa_platform/bluetooth.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/factory.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "profile.h"

namespace
{

constexpr int kFailed = -1;
constexpr std::size_t kOptionSize = 128;

int ReadInt(const char* group, const std::string& key, int* value)
{
    const auto number = fa_platform::FindNumber(group, key);
    if (!number) {
        return kFailed;
    }
    *value = static_cast<int>(*number);
    return 0;
}

class SimulatedPanel : public IDisplayPanel
{
public:
    int getTconDataVersion(char* buffer, int size) override
    {
        fa_platform::Announce("getTconDataVersion(" + std::to_string(size) + ")");
        const auto version = fa_platform::FindText("display_panel", "tcon_data_version");
        if (!version || size <= 0) {
            return kFailed;
        }
        std::snprintf(buffer, static_cast<std::size_t>(size), "%s", version->c_str());
        return 0;
    }
};

}  // namespace

int system_info_get_value_int(int key, int* value)
{
    fa_platform::Announce("system_info_get_value_int(" + std::to_string(key) + ")");
    return ReadInt("system_info_int", std::to_string(key), value);
}

int system_info_get_value_string(int key, char** value)
{
    fa_platform::Announce("system_info_get_value_string(" + std::to_string(key) + ")");
    const auto text = fa_platform::FindText("system_info_string", std::to_string(key));
    char* copy = text ? strdup(text->c_str()) : nullptr;
    if (copy == nullptr) {
        return kFailed;
    }
    *value = copy;
    return 0;
}

int system_info_get_custom_bool(const char* key, bool* value)
{
    fa_platform::Announce(std::string("system_info_get_custom_bool(") + key + ")");
    const auto flag = fa_platform::FindFlag("custom_bool", key);
    if (!flag) {
        return kFailed;
    }
    *value = *flag;
    return 0;
}

int bt_adapter_get_chip_version(int* version)
{
    fa_platform::Announce("bt_adapter_get_chip_version");
    return ReadInt("bluetooth", "chip_version", version);
}

IDisplayPanel::~IDisplayPanel() = default;

IDisplayPanel* IDisplayPanel::getInstance()
{
    fa_platform::Announce("IDisplayPanel::getInstance");
    // Never destroyed, because an exit handler of the application may still write a report.
    static SimulatedPanel* const panel = new SimulatedPanel;
    return fa_platform::FindFlag("display_panel", "present").value_or(false) ? panel : nullptr;
}

int ve_start_local_dimming_test(unsigned char selector, unsigned int* value)
{
    const std::string key = std::to_string(selector);
    fa_platform::Announce("ve_start_local_dimming_test(" + key + ")");
    const auto number = fa_platform::FindNumber("local_dimming", key);
    if (!number) {
        return kFailed;
    }
    *value = static_cast<unsigned int>(*number);
    return 0;
}

int factory_get_option_string_data(int option, char* buffer, unsigned int* length)
{
    const std::string key = std::to_string(option);
    fa_platform::Announce("factory_get_option_string_data(" + key + ")");
    const auto text = fa_platform::FindText("factory_option", key);
    if (!text || text->size() >= kOptionSize) {
        return kFailed;
    }
    std::memcpy(buffer, text->c_str(), text->size() + 1);
    *length = static_cast<unsigned int>(text->size());
    return 0;
}

FCBlockProfiler::FCBlockProfiler(const char* file, int, const char* function)
{
    fa_platform::Announce(std::string("FCBlockProfiler(") + file + ", " + function + ")");
}

FCBlockProfiler::~FCBlockProfiler()
{
    try {
        fa_platform::Announce("~FCBlockProfiler");
    } catch (const std::bad_alloc&) {
        // A report whose memory has run out still gets here, and nothing may leave a destructor.
    }
}
