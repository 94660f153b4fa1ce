// What a profile tells of a platform makes another platform like it.
#include "platform/profile/profile_text.h"

#include <fa_api/PelkoAppClientLogger.h>
#include <fa_api/automation_api.h>
#include <fa_platform/bluetooth.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

namespace
{

constexpr char kFeature[] = "com.velmora/featureconf/bluetooth.support";
using Answers = std::vector<std::pair<int, std::string>>;

Answers AllAnswers()
{
    Answers answers;
    const auto add = [&](int status, const std::string& value) {
        answers.emplace_back(status, status == 0 ? value : "");
    };
    for (const int key : {869, 284}) {
        int value = 0;
        add(system_info_get_value_int(key, &value), std::to_string(value));
    }
    for (const int key : {0, 128, 133}) {
        char* text = nullptr;
        const int status = system_info_get_value_string(key, &text);
        add(status, status == 0 ? text : "");
        std::free(text);
    }
    bool flag = false;
    add(system_info_get_custom_bool(kFeature, &flag), std::to_string(flag));
    int chip = 0;
    add(bt_adapter_get_chip_version(&chip), std::to_string(chip));
    char version[40] = {};
    IDisplayPanel* panel = IDisplayPanel::getInstance();
    add(panel != nullptr ? panel->getTconDataVersion(version, sizeof(version)) : -9, version);
    for (unsigned char selector = 7; selector <= 8; ++selector) {
        unsigned int value = 0;
        add(ve_start_local_dimming_test(selector, &value), std::to_string(value));
    }
    char option[128] = {};
    unsigned int length = 0;
    add(factory_get_option_string_data(254, option, &length), option);
    return answers;
}

// A profile of any platform: entries missing, numbers of all sizes, texts of all bytes and lengths.
std::string RandomProfile(std::mt19937& random)
{
    const auto upTo = [&](unsigned int last) { return static_cast<int>(random() % (last + 1)); };
    const auto text = [&] {
        std::string escaped;
        for (int left = upTo(upTo(1) == 0 ? 4 : 127); left > 0; --left) {
            constexpr unsigned char kSpecial[] = " \t\n\r\\=#[]\xC3\xA9";
            const int byte = upTo(1) == 0 ? 1 + upTo(254) : kSpecial[upTo(10)];
            char hex[5];
            std::snprintf(hex, sizeof(hex), "\\x%02x", static_cast<unsigned int>(byte));
            escaped += hex;
        }
        return escaped;
    };
    const auto number = [&] { return std::to_string(static_cast<int>(random())); };
    const auto flag = [&] { return upTo(1) == 0 ? "true" : "false"; };
    std::string profile;
    const auto entry = [&](const std::string& key, const std::string& value) {
        profile += upTo(4) == 0 ? "" : key + "=" + value + "\n";
    };
    profile += "[system_info_int]\n";
    entry("869", number());
    entry("284", number());
    profile += "[system_info_string]\n";
    entry("0", text());
    entry("128", text());
    entry("133", text());
    profile += "[custom_bool]\n";
    entry(kFeature, flag());
    profile += "[bluetooth]\n";
    entry("chip_version", number());
    profile += "[display_panel]\n";
    entry("present", flag());
    entry("tcon_data_version", text());
    profile += "[local_dimming]\n";
    entry("7", number());
    entry("8", std::to_string(random()));
    profile += "[factory_option]\n";
    entry("254", text());
    return profile;
}

TEST(PlatformProfile, MakesAnotherPlatformAnswerAlike)
{
    std::mt19937 random(1);
    for (int round = 0; round < 400; ++round) {
        const std::string original = RandomProfile(random);
        fa_platform::UseProfileText(original.c_str());
        const Answers answers = AllAnswers();
        const fa::PlatformProfile copy = fa::AskPlatform();
        EXPECT_EQ(copy.losses, std::vector<std::string>{}) << original;
        fa_platform::UseProfileText(copy.text.c_str());
        ASSERT_EQ(AllAnswers(), answers) << original << "--- became ---\n" << copy.text;
        ASSERT_TRUE(g_utf8_validate(copy.text.c_str(), -1, nullptr)) << copy.text;
    }
}

TEST(PlatformProfile, AsksWhatTheLibraryAsks)
{
    fa_platform::UseProfileText(
        "[system_info_int]\n869=1\n284=6\n"
        "[custom_bool]\ncom.velmora/featureconf/bluetooth.support=true\n"
        "[display_panel]\npresent=true\n");
    std::set<std::string> queries;
    fa_platform::SetQueryObserver([&](const std::string& query) {
        if (query.find("FCBlockProfiler") == std::string::npos) {
            queries.insert(query);
        }
    });
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    automation_execute_command_with_projector(806, 6);
    PelkoTestInfo_s run{};
    std::vector<PelkoItem_s> items;
    std::string report;
    PelkoAppClientLogger(PelkoAppClientLogger::MODE_DETAIL).GetLog(report, &run, &items);
    const std::set<std::string> ofTheLibrary = std::exchange(queries, {});
    fa::AskPlatform();
    EXPECT_EQ(queries, ofTheLibrary);
}

}  // namespace
