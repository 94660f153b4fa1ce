// The simulated platform by itself: what it answers from a profile, refuses and logs; and what a
// profile tells of a platform, which makes another platform like it.
#include "platform/profile/profile_text.h"

#include <fa_api/PelkoAppClientLogger.h>
#include <fa_api/automation_api.h>
#include <fa_platform/dlog.h>
#include <fcntl.h>
#include <glib.h>

#include <array>
#include <random>
#include <set>

#include "support/trace.h"
#include "support/whole_platform.h"

namespace
{

constexpr char kFeature[] = "com.velmora/featureconf/bluetooth.support";

// What each query answers, a line each: its result, and what it leaves in an output that held
// something else.
std::string Answers()
{
    std::string answers = "\n";
    const auto add = [&](const std::string& query, int result, const std::string& output) {
        answers += query + ": " + std::to_string(result) + " " + output + "\n";
    };
    for (const int key : {869, 284}) {
        int value = -77;
        const int result = system_info_get_value_int(key, &value);
        add(std::to_string(key), result, std::to_string(value));
    }
    for (const int key : {0, 128, 133}) {
        char untouched[] = "untouched";
        char* value = untouched;
        const int result = system_info_get_value_string(key, &value);
        add(std::to_string(key), result, value);
        std::free(value != untouched ? value : nullptr);
    }
    bool supported = true;
    const int known = system_info_get_custom_bool(kFeature, &supported);
    add("bluetooth", known, supported ? "yes" : "no");
    int chip = -77;
    const int there = bt_adapter_get_chip_version(&chip);
    add("chip", there, std::to_string(chip));
    for (const int size : {40, 5, 0}) {
        char buffer[40] = "untouched";
        IDisplayPanel* panel = IDisplayPanel::getInstance();
        const int result = panel != nullptr ? panel->getTconDataVersion(buffer, size) : -9;
        add(Format("panel, %d bytes", size), result, buffer);
    }
    for (const unsigned char selector : std::array<unsigned char, 2>{7, 8}) {
        unsigned int value = 77;
        const int result = ve_start_local_dimming_test(selector, &value);
        add(Format("dimming %d", selector), result, std::to_string(value));
    }
    char buffer[129] = "untouched";
    buffer[128] = '!';
    unsigned int length = 77;
    const int result = factory_get_option_string_data(254, buffer, &length);
    add("option", result, Format("%u %s %c", length, buffer, buffer[128]));
    return answers;
}

TEST(SimulatedPlatform, AnswersFromItsProfileAndFailsWithoutAnEntry)
{
    const std::string ints = "[system_info_int]\n869=";
    const std::string texts = "[system_info_string]\n133=";
    const std::string feature = "[custom_bool]\n" + std::string(kFeature) + "=";
    const std::string panel = "[display_panel]\npresent=true\ntcon_data_version=TCON-1\n";
    const std::string option = "[factory_option]\n254=";
    const std::string no32 = " in [system_info_int] is not a number of 32 bits\n";
    const std::string noEscape = " in [system_info_string] has an unknown escape\n";
    const std::string full(127, 'o');
    const struct {
        std::string profile;
        std::string answer;
        std::string complaint = {};
    } rows[] = {
        {"",
         "869: -1 -77\n284: -1 -77\n0: -1 untouched\n128: -1 untouched\n133: -1 untouched\n"
         "bluetooth: -1 yes\nchip: -1 -77\npanel, 40 bytes: -9 untouched\npanel, 5 bytes: -9 "
         "untouched\npanel, 0 bytes: -9 untouched\ndimming 7: -1 77\ndimming 8: -1 77\n"
         "option: -1 77 untouched !"},
        {ints + "010", "869: 0 10"},
        {ints + "-2147483648", "869: 0 -2147483648"},
        {ints + "0x1a", "869: 0 26"},
        {ints + "4294967295", "869: 0 -1"},
        {ints, "869: -1 -77"},
        {ints + "4294967296", "869: -1 -77", "869=4294967296" + no32},
        {ints + "-2147483649", "869: -1 -77", "869=-2147483649" + no32},
        {ints + "99999999999999999999", "869: -1 -77", "869=99999999999999999999" + no32},
        {ints + "6 sets", "869: -1 -77", "869=6 sets" + no32},
        {texts, "133: 0 "},
        {texts + "A\\nB\\tC\\sD\\\\E\\x41\\r", "133: 0 A\nB\tC D\\EA\r"},
        {texts + "A\\q", "133: -1 untouched", "133=A\\q" + noEscape},
        {texts + "A\\x00", "133: -1 untouched", "133=A\\x00" + noEscape},
        {feature + "false\n[bluetooth]\nchip_version=12", "bluetooth: 0 no\nchip: 0 12"},
        {feature + "perhaps", "bluetooth: -1 yes",
         std::string(kFeature) + " in [custom_bool] is neither true nor false\n"},
        {"[display_panel]\npresent=true", "panel, 40 bytes: -1 untouched"},
        {panel, "panel, 40 bytes: 0 TCON-1\npanel, 5 bytes: 0 TCON\npanel, 0 bytes: -1 untouched"},
        {"[local_dimming]\n7=1\n8=0xFFFFFFFE", "dimming 7: 0 1\ndimming 8: 0 4294967294"},
        {option, "option: 0 0  !"},
        {option + full, "option: 0 127 " + full + " !"},
        {option + full + "o", "option: -1 77 untouched !"},
    };
    for (const auto& row : rows) {
        fa_platform::UseProfileText((row.profile + "\n").c_str());
        testing::internal::CaptureStderr();
        EXPECT_THAT(Answers(), testing::HasSubstr("\n" + row.answer + "\n")) << row.profile;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  row.complaint.empty() ? "" : "fa_platform: " + row.complaint);
    }
}

TEST(SimulatedPlatform, ReadsTheProfileFileAgainForEachQuery)
{
    unsetenv("FA_PLATFORM_PROFILE");
    EXPECT_THAT(Answers(), testing::StartsWith("\n869: 0 1\n"));  // of the sample
    const std::string path = testing::TempDir() + Format("fa-profile-%d.ini", getpid());
    setenv("FA_PLATFORM_PROFILE", path.c_str(), 1);
    for (const char* value : {"5", "6"}) {
        std::ofstream(path) << "[system_info_int]\n869=" << value << "\n";
        EXPECT_THAT(Answers(), testing::StartsWith(std::string("\n869: 0 ") + value + "\n"));
    }
    unlink(path.c_str());
    testing::internal::CaptureStderr();
    EXPECT_THAT(Answers(), testing::StartsWith("\n869: -1 -77\n"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::StartsWith("fa_platform: profile " + path + ": No such file"));
}

// The observer gives each query an answer of its own: its number.
TEST(SimulatedPlatform, TellsItsObserverOfAQueryBeforeItIsAnswered)
{
    int queries = 0;
    fa_platform::SetQueryObserver([&](const std::string&) {
        const std::string form =
            "[system_info_int]\n869=#\n284=#\n[system_info_string]\n0=#\n128=#\n133=#\n"
            "[bluetooth]\nchip_version=#\n[display_panel]\npresent=true\ntcon_data_version=#\n"
            "[local_dimming]\n7=#\n8=#\n[factory_option]\n254=#\n";
        const std::string number = std::to_string(++queries);
        fa_platform::UseProfileText(std::regex_replace(form, std::regex("#"), number).c_str());
    });
    EXPECT_EQ(Answers(),
              "\n869: 0 1\n284: 0 2\n0: 0 3\n128: 0 4\n133: 0 5\nbluetooth: -1 yes\nchip: 0 7\n"
              "panel, 40 bytes: 0 9\npanel, 5 bytes: 0 11\npanel, 0 bytes: -1 untouched\n"
              "dimming 7: 0 14\ndimming 8: 0 15\noption: 0 2 16 !\n");
}

// A pipe in packet mode keeps each write apart.
TEST(SimulatedPlatform, LogsEachLineToStandardErrorInOneWrite)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT | O_NONBLOCK), 0);
    dup2(ends[1], STDERR_FILENO);
    EXPECT_EQ(__dlog_print(2, 3, "TAG", "%s %d\n", "a message", 5), 19);
    __dlog_print(2, 4, "TAG", "no line feed");
    for (const int priority : {2, 5, 6, 7, 8, -1}) {
        __dlog_print(2, priority, "T", "\n");
    }
    std::string packets;
    char packet[100];
    for (ssize_t size = 0; (size = read(ends[0], packet, sizeof(packet))) > 0;) {
        packets += "|" + std::string(packet, static_cast<std::size_t>(size));
    }
    EXPECT_EQ(packets,
              "|D/TAG: a message 5\n|I/TAG: no line feed\n|V/T: \n|W/T: \n|E/T: \n|F/T: \n"
              "|?/T: \n|?/T: \n");
}

// A profile of any platform: entries missing, numbers of all sizes, texts of all bytes and lengths.
std::string RandomProfile(std::mt19937& random)
{
    const auto upTo = [&](unsigned int last) { return static_cast<int>(random() % (last + 1)); };
    const auto number = [&] { return std::to_string(static_cast<int>(random())); };
    const auto flag = [&] { return std::string(upTo(1) == 0 ? "true" : "false"); };
    const auto text = [&](unsigned int most) {
        std::string escaped;
        for (int left = upTo(upTo(1) == 0 ? 4 : most); left > 0; --left) {
            constexpr unsigned char kSpecial[] = " \t\n\r\\=#[]\xC3\xA9";
            const int byte = upTo(1) == 0 ? 1 + upTo(254) : kSpecial[upTo(10)];
            escaped += Format("\\x%02x", static_cast<unsigned int>(byte));
        }
        return escaped;
    };
    const std::string whole =
        "[system_info_int]\n869=" + number() + "\n284=" + number() +
        "\n[system_info_string]\n0=" + text(127) + "\n128=" + text(127) + "\n133=" + text(127) +
        "\n[custom_bool]\n" + kFeature + "=" + flag() + "\n[bluetooth]\nchip_version=" + number() +
        "\n[display_panel]\npresent=" + flag() + "\ntcon_data_version=" + text(39) +
        "\n[local_dimming]\n7=" + (upTo(3) == 0 ? "-1" : number()) +
        "\n8=" + std::to_string(random()) + "\n[factory_option]\n254=" + text(127) + "\n";
    std::string profile;
    for (const std::string& line : Split(whole)) {
        profile += (line[0] != '[' && upTo(4) == 0 ? "#" : "") + line + "\n";
    }
    return profile;
}

TEST(PlatformProfile, MakesAnotherPlatformAnswerAlike)
{
    std::mt19937 random(1);
    for (int round = 0; round < 400; ++round) {
        const std::string original = RandomProfile(random);
        fa_platform::UseProfileText(original.c_str());
        const std::string answers = Answers();
        const fa::PlatformProfile copy = fa::AskPlatform();
        EXPECT_EQ(copy.losses, std::vector<std::string>{}) << original;
        fa_platform::UseProfileText(copy.text.c_str());
        ASSERT_EQ(Answers(), answers) << original << "--- became ---\n" << copy.text;
        ASSERT_EQ(copy.text.find(" \n"), std::string::npos) << copy.text;  // which editors drop
        ASSERT_TRUE(g_utf8_validate(copy.text.c_str(), -1, nullptr)) << copy.text;
    }
}

TEST(PlatformProfile, AsksWhatTheLibraryAsks)
{
    unsetenv("FA_PLATFORM_PROFILE");  // the sample, which has everything
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
