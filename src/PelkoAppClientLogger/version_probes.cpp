// The versions of the set's components, each asked of the platform or written as a mask.
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/bluetooth.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/system_text.h"
#include "PelkoAppClientLogger/text_format.h"
#include "common/log.h"

namespace
{

constexpr int kMmKey = 128;
constexpr int kSmSsKey = 133;
constexpr char kBluetoothFeature[] = "com.velmora/featureconf/bluetooth.support";
constexpr unsigned char kLd1Selector = 7;
constexpr unsigned char kLd2Selector = 8;
constexpr unsigned int kNoLdVersion = 0xFFFFFFFF;
constexpr char kInspectionLink[] = "/opt/usr/apps/libPelkoInspect.so";
constexpr std::string_view kInspectionLibrary = "libPelkoInspect.so.";

// A version that the system information tells; null where the query fails.
std::unique_ptr<char, fa::FreeText> QueryVersion(int key)
{
    fa::SystemText version = fa::QuerySystemText(key);
    return version.error == 0 ? std::move(version.text) : nullptr;
}

void AppendMm(std::string& text)
{
    const auto version = QueryVersion(kMmKey);
    fa::AppendLine(text, "mm", version != nullptr ? version.get() : fa::kUnknown);
}

// Two components share one value, a line each.
void AppendSmAndSs(std::string& text)
{
    const auto versions = QueryVersion(kSmSsKey);
    if (versions == nullptr) {
        fa::AppendLine(text, "sm", fa::kUnknown);
        fa::AppendLine(text, "ss", fa::kUnknown);
        return;
    }
    char* position = nullptr;
    const char* first = strtok_r(versions.get(), "\n", &position);
    const char* second = first != nullptr ? strtok_r(nullptr, "\n", &position) : nullptr;
    if (second != nullptr) {
        fa::AppendLine(text, "sm", first);
        fa::AppendLine(text, "ss", second);
    } else {
        fa::AppendLine(text, "sm", versions.get());
        fa::AppendLine(text, "ss", fa::kNotSupported);
    }
}

void AppendMt(std::string& text)
{
    IDisplayPanel* panel = IDisplayPanel::getInstance();
    char version[40] = {};
    if (panel != nullptr && panel->getTconDataVersion(version, sizeof(version)) == 0) {
        fa::AppendLine(text, "mt", fa::TextField(version));
    } else {
        FA_LOG_AND_PRINT_FOR("m_GetVersionInfo", fa::kError, "getTconDataVersion err.");
        fa::AppendLine(text, "mt", fa::kUnknown);
    }
}

// Unlike the other lines, a chip version ends without a line feed.
void AppendBt(std::string& text)
{
    bool supported = false;
    if (system_info_get_custom_bool(kBluetoothFeature, &supported) != 0 || !supported) {
        fa::AppendLine(text, "bt", fa::kNotSupported);
        return;
    }
    int version = 0;
    if (bt_adapter_get_chip_version(&version) != 0) {
        fa::AppendLine(text, "bt", fa::kUnknown);
        return;
    }
    text += "bt=BLUETOOTH-VER-";
    fa::AppendPadded(text, version, 4);
}

}  // namespace

bool PelkoAppClientLogger::m_GetVersionInfo(std::string& text)
{
    std::string block;
    AppendMm(block);
    AppendSmAndSs(block);
    AppendMt(block);
    AppendBt(block);
    if (m_mode != MODE_SIMPLE) {
        std::string ld1;
        std::string ld2;
        m_GetLdVersion(kLd1Selector, ld1);
        m_GetLdVersion(kLd2Selector, ld2);
        block += '\n';
        fa::AppendLine(block, "ld1", ld1);
        fa::AppendLine(block, "ld2", ld2);
    }
    text = std::move(block);
    return true;
}

bool PelkoAppClientLogger::m_GetLdVersion(unsigned char selector, std::string& text)
{
    unsigned int version = kNoLdVersion;
    ve_start_local_dimming_test(selector, &version);
    if (version == kNoLdVersion) {
        text = fa::kUnknown;
    } else if (version == 0) {
        text = fa::kNotSupported;
    } else {
        char digits[9];
        std::snprintf(digits, sizeof(digits), "%08X", version);
        text = digits;
    }
    return true;
}

bool PelkoAppClientLogger::m_GetSoVersion(std::string& text)
{
    if (m_mode != MODE_SIMPLE) {
        return false;
    }
    char target[1024] = {};
    const ssize_t length = readlink(kInspectionLink, target, sizeof(target));
    if (length < 0) {
        FA_LOG_AND_PRINT(fa::kError, "failed to get SO version");
        return false;
    }
    target[std::min<std::size_t>(static_cast<std::size_t>(length), sizeof(target) - 1)] = '\0';
    text = target;

    const std::size_t library = text.rfind(kInspectionLibrary);
    if (library == std::string::npos) {
        FA_LOG_AND_PRINT(fa::kError, "failed to find so. file");
        return false;
    }
    text.erase(0, library + kInspectionLibrary.size());
    FA_LOG(fa::kInfo, "strOut=%s", text.c_str());  // sic
    return true;
}
