// The simulated platform by itself: what it answers from a profile, refuses, logs and shows; and
// what a profile tells of a platform, which makes another platform like it.
#include "platform/profile/profile_text.h"

#include <fa_api/PelkoAppClientLogger.h>
#include <fa_api/automation_api.h>
#include <fa_platform/bluetooth.h>
#include <fa_platform/debug_menu.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/dlog.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "support/session.h"
#include "support/trace.h"

namespace
{

constexpr char kFeature[] = "com.velmora/featureconf/bluetooth.support";

// A query's result, and what it leaves in an output that held something else.
template <typename Query, typename Key, typename Number>
std::string Ask(Query query, Key key, Number number)
{
    const int result = query(key, &number);
    return std::to_string(result) + " " + std::to_string(number);
}

int ChipVersion(int /*key*/, int* version)
{
    return bt_adapter_get_chip_version(version);
}

std::string Text(int key)
{
    char untouched[] = "untouched";
    char* value = untouched;
    const int result = system_info_get_value_string(key, &value);
    const std::string text = Format("%d %s", result, value);
    std::free(value != untouched ? value : nullptr);
    return text;
}

std::string Panel(int size)
{
    char buffer[40] = "untouched";
    IDisplayPanel* panel = IDisplayPanel::getInstance();
    const int result = panel != nullptr ? panel->getTconDataVersion(buffer, size) : -9;
    return Format("%d %s", result, buffer);
}

std::string Option()
{
    char buffer[129] = "untouched";
    buffer[128] = '!';
    unsigned int length = 77;
    const int result = factory_get_option_string_data(254, buffer, &length);
    return Format("%d %u %s %c", result, length, buffer, buffer[128]);
}

constexpr unsigned char kSeven = 7;
constexpr unsigned char kEight = 8;

const std::map<std::string, std::function<std::string()>> kQueries = {
    {"869", [] { return Ask(system_info_get_value_int, 869, -77); }},
    {"284", [] { return Ask(system_info_get_value_int, 284, -77); }},
    {"0", [] { return Text(0); }},
    {"128", [] { return Text(128); }},
    {"133", [] { return Text(133); }},
    {"bluetooth", [] { return Ask(system_info_get_custom_bool, kFeature, true); }},
    {"chip", [] { return Ask(ChipVersion, 0, -77); }},
    {"panel", [] { return Panel(40); }},
    {"panel, 5 bytes", [] { return Panel(5); }},
    {"panel, 0 bytes", [] { return Panel(0); }},
    {"7", [] { return Ask(ve_start_local_dimming_test, kSeven, 77U); }},
    {"8", [] { return Ask(ve_start_local_dimming_test, kEight, 77U); }},
    {"option", Option}};

std::string AllAnswers()
{
    std::string answers;
    for (const auto& [name, query] : kQueries) {
        answers += name + ": " + query() + "\n";
    }
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
    const struct {
        int line;
        std::string profile;
        const char* query;
        std::string answer;
        std::string complaint = {};
    } rows[] = {
        {__LINE__, "", "869", "-1 -77"},
        {__LINE__, ints + "6", "869", "0 6"},
        {__LINE__, ints + "-2147483648", "869", "0 -2147483648"},
        {__LINE__, ints + "0x1a", "869", "0 26"},
        {__LINE__, ints + "4294967295", "869", "0 -1"},
        {__LINE__, ints, "869", "-1 -77"},
        {__LINE__, ints + "4294967296", "869", "-1 -77", "869=4294967296" + no32},
        {__LINE__, ints + "-2147483649", "869", "-1 -77", "869=-2147483649" + no32},
        {__LINE__, ints + "99999999999999999999", "869", "-1 -77",
         "869=99999999999999999999" + no32},
        {__LINE__, ints + "6 sets", "869", "-1 -77", "869=6 sets" + no32},
        {__LINE__, "", "133", "-1 untouched"},
        {__LINE__, texts, "133", "0 "},
        {__LINE__, texts + "A\\nB\\tC\\sD\\\\E\\x41", "133", "0 A\nB\tC D\\EA"},
        {__LINE__, texts + "A\\q", "133", "-1 untouched",
         "133=A\\q in [system_info_string] has an unknown escape\n"},
        {__LINE__, "", "bluetooth", "-1 1"},
        {__LINE__, "", "chip", "-1 -77"},
        {__LINE__, feature + "false", "bluetooth", "0 0"},
        {__LINE__, "[bluetooth]\nchip_version=12", "chip", "0 12"},
        {__LINE__, feature + "perhaps", "bluetooth", "-1 1"},
        {__LINE__, "", "panel", "-9 untouched"},
        {__LINE__, "[display_panel]\npresent=true", "panel", "-1 untouched"},
        {__LINE__, panel, "panel", "0 TCON-1"},
        {__LINE__, panel, "panel, 5 bytes", "0 TCON"},
        {__LINE__, panel, "panel, 0 bytes", "-1 untouched"},
        {__LINE__, "", "8", "-1 77"},
        {__LINE__, "[local_dimming]\n7=1\n8=0xFFFFFFFE", "8", "0 4294967294"},
        {__LINE__, "", "option", "-1 77 untouched !"},
        {__LINE__, option, "option", "0 0  !"},
        {__LINE__, option + std::string(127, 'o'), "option",
         "0 127 " + std::string(127, 'o') + " !"},
        {__LINE__, option + std::string(128, 'o'), "option", "-1 77 untouched !"},
    };
    for (const auto& row : rows) {
        const testing::ScopedTrace where(__FILE__, row.line, "row");
        fa_platform::UseProfileText((row.profile + "\n").c_str());
        testing::internal::CaptureStderr();
        const std::string answer = kQueries.at(row.query)();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  row.complaint.empty() ? "" : "fa_platform: " + row.complaint);
        EXPECT_EQ(answer, row.answer);
    }
}

TEST(SimulatedPlatform, ReadsTheProfileFileAgainForEachQuery)
{
    unsetenv("FA_PLATFORM_PROFILE");
    EXPECT_EQ(kQueries.at("869")(), "0 1");  // of the sample
    const std::string path = testing::TempDir() + Format("fa-profile-%d.ini", getpid());
    setenv("FA_PLATFORM_PROFILE", path.c_str(), 1);
    for (const char* value : {"5", "6"}) {
        std::ofstream(path) << "[system_info_int]\n869=" << value << "\n";
        EXPECT_EQ(kQueries.at("869")(), std::string("0 ") + value);
    }
    unlink(path.c_str());
    testing::internal::CaptureStderr();
    EXPECT_EQ(kQueries.at("869")(), "-1 -77");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "fa_platform: profile " + path + ": No such file or directory\n");
}

// A pipe in packet mode keeps each write apart.
TEST(SimulatedPlatform, LogsEachLineToStandardErrorInOneWrite)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_DIRECT | O_NONBLOCK), 0);
    const int error = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    const int written = __dlog_print(2, 3, "TAG", "%s %d\n", "a message", 5);
    __dlog_print(2, 4, "TAG", "no line feed");
    for (const int priority : {2, 5, 6, 7, 8, -1}) {
        __dlog_print(2, priority, "T", "\n");
    }
    dup2(error, STDERR_FILENO);
    close(error);
    std::string packets;
    char packet[100];
    for (ssize_t size = 0; (size = read(ends[0], packet, sizeof(packet))) > 0;) {
        packets += "|" + std::string(packet, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(
        Same("|D/TAG: a message 5\n|I/TAG: no line feed\n|V/T: \n|W/T: \n|E/T: \n|F/T: \n"
             "|?/T: \n|?/T: \n",
             packets));
    EXPECT_EQ(written, 19);
}

TEST(SimulatedPlatform, WaitsForANumberAndTakesTheEndOfInputForExit)
{
    const auto choices = [] {
        int choice = 0;
        do {
            EXPECT_EQ(menu_print(1, "%s >> ", "choice"), 10);
            choice = waitkeyresponse();
            std::printf("[%d]", choice);
        } while (choice != 99);
        return 0;
    };
    EXPECT_EQ(
        Play(kStream, choices,
             "choice >> {5\n}[5]choice >> {x 7 8\n}[-1]choice >> {-3 99\n}[-3]choice >> [99]"),
        0);
    EXPECT_EQ(Play(kStream, choices, "choice >> [99]"), 0);
    EXPECT_EQ(Play(kStream, choices, "choice >> {no line end}[99]"), 0);
    EXPECT_EQ(Play(kTerminal, choices, "choice >> {five\n}[-1]choice >> {\4}[99]"), 0);
}

// A profile of any platform: entries missing, numbers of all sizes, texts of all bytes and lengths.
std::string RandomProfile(std::mt19937& random)
{
    const auto upTo = [&](unsigned int last) { return static_cast<int>(random() % (last + 1)); };
    const auto number = [&] { return std::to_string(static_cast<int>(random())); };
    const auto flag = [&] { return std::string(upTo(1) == 0 ? "true" : "false"); };
    const auto text = [&] {
        std::string escaped;
        for (int left = upTo(upTo(1) == 0 ? 4 : 127); left > 0; --left) {
            constexpr unsigned char kSpecial[] = " \t\n\r\\=#[]\xC3\xA9";
            const int byte = upTo(1) == 0 ? 1 + upTo(254) : kSpecial[upTo(10)];
            escaped += Format("\\x%02x", static_cast<unsigned int>(byte));
        }
        return escaped;
    };
    const std::pair<std::string, std::string> entries[] = {
        {"[system_info_int]\n869", number()},
        {"284", number()},
        {"[system_info_string]\n0", text()},
        {"128", text()},
        {"133", text()},
        {"[custom_bool]\n" + std::string(kFeature), flag()},
        {"[bluetooth]\nchip_version", number()},
        {"[display_panel]\npresent", flag()},
        {"tcon_data_version", text().substr(0, 4 * 39)},
        {"[local_dimming]\n7", number()},
        {"8", std::to_string(random())},
        {"[factory_option]\n254", text()}};
    std::string profile;
    for (const auto& [key, value] : entries) {
        const std::size_t begin = key.rfind('\n') + 1;
        const char* comment = upTo(4) == 0 ? "#" : "";
        profile += key.substr(0, begin) + comment + key.substr(begin) + "=" + value + "\n";
    }
    return profile;
}

TEST(PlatformProfile, MakesAnotherPlatformAnswerAlike)
{
    std::mt19937 random(1);
    for (int round = 0; round < 400; ++round) {
        const std::string original = RandomProfile(random);
        fa_platform::UseProfileText(original.c_str());
        const std::string answers = AllAnswers();
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
