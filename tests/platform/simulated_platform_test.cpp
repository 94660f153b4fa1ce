// The simulated platform by itself: what it answers from a profile, refuses, logs and shows.
#include <fa_platform/bluetooth.h>
#include <fa_platform/debug_menu.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/dlog.h>
#include <fa_platform/factory.h>
#include <fa_platform/simulation.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "support/session.h"
#include "support/trace.h"

namespace
{

constexpr char kFeature[] = "com.velmora/featureconf/bluetooth.support";

// The queries, with their result and what they leave in an output that held something else.

std::string Int()
{
    int value = -77;
    const int result = system_info_get_value_int(869, &value);
    return Format("%d %d", result, value);
}

std::string Text()
{
    char untouched[] = "untouched";
    char* value = untouched;
    const int result = system_info_get_value_string(133, &value);
    const std::string text = Format("%d %s", result, value);
    std::free(value != untouched ? value : nullptr);
    return text;
}

std::string Bluetooth()
{
    bool flag = true;
    const int result = system_info_get_custom_bool(kFeature, &flag);
    int version = -77;
    const int versionResult = bt_adapter_get_chip_version(&version);
    return Format("%d %d, %d %d", result, flag, versionResult, version);
}

std::string Panel(int size)
{
    char buffer[] = "untouched";
    IDisplayPanel* panel = IDisplayPanel::getInstance();
    const int result = panel != nullptr ? panel->getTconDataVersion(buffer, size) : -9;
    return Format("%d %s", result, buffer);
}

std::string Dimming()
{
    unsigned int value = 77;
    const int result = ve_start_local_dimming_test(8, &value);
    return Format("%d %X", result, value);
}

std::string Option()
{
    char buffer[129] = "untouched";
    buffer[128] = '!';
    unsigned int length = 77;
    const int result = factory_get_option_string_data(254, buffer, &length);
    return Format("%d %u %s %c", result, length, buffer, buffer[128]);
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
        std::function<std::string()> query;
        std::string answer;
        std::string complaint = {};
    } rows[] = {
        {__LINE__, "", Int, "-1 -77"},
        {__LINE__, ints + "6", Int, "0 6"},
        {__LINE__, ints + "-2147483648", Int, "0 -2147483648"},
        {__LINE__, ints + "0x1a", Int, "0 26"},
        {__LINE__, ints + "4294967295", Int, "0 -1"},
        {__LINE__, ints, Int, "-1 -77"},
        {__LINE__, ints + "4294967296", Int, "-1 -77", "869=4294967296" + no32},
        {__LINE__, ints + "-2147483649", Int, "-1 -77", "869=-2147483649" + no32},
        {__LINE__, ints + "99999999999999999999", Int, "-1 -77", "869=99999999999999999999" + no32},
        {__LINE__, ints + "6 sets", Int, "-1 -77", "869=6 sets" + no32},
        {__LINE__, "", Text, "-1 untouched"},
        {__LINE__, texts, Text, "0 "},
        {__LINE__, texts + "A\\nB\\tC\\sD\\\\E\\x41", Text, "0 A\nB\tC D\\EA"},
        {__LINE__, texts + "A\\q", Text, "-1 untouched",
         "133=A\\q in [system_info_string] has an unknown escape\n"},
        {__LINE__, "", Bluetooth, "-1 1, -1 -77"},
        {__LINE__, feature + "false\n[bluetooth]\nchip_version=12", Bluetooth, "0 0, 0 12"},
        {__LINE__, feature + "perhaps", Bluetooth, "-1 1, -1 -77"},
        {__LINE__, "", [] { return Panel(10); }, "-9 untouched"},
        {__LINE__, "[display_panel]\npresent=true", [] { return Panel(10); }, "-1 untouched"},
        {__LINE__, panel, [] { return Panel(10); }, "0 TCON-1"},
        {__LINE__, panel, [] { return Panel(5); }, "0 TCON"},
        {__LINE__, panel, [] { return Panel(0); }, "-1 untouched"},
        {__LINE__, "", Dimming, "-1 4D"},
        {__LINE__, "[local_dimming]\n7=1\n8=0xFFFFFFFE", Dimming, "0 FFFFFFFE"},
        {__LINE__, "", Option, "-1 77 untouched !"},
        {__LINE__, option, Option, "0 0  !"},
        {__LINE__, option + std::string(127, 'o'), Option, "0 127 " + std::string(127, 'o') + " !"},
        {__LINE__, option + std::string(128, 'o'), Option, "-1 77 untouched !"},
    };
    for (const auto& row : rows) {
        const testing::ScopedTrace where(__FILE__, row.line, "row");
        fa_platform::UseProfileText((row.profile + "\n").c_str());
        testing::internal::CaptureStderr();
        const std::string answer = row.query();
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  row.complaint.empty() ? "" : "fa_platform: " + row.complaint);
        EXPECT_EQ(answer, row.answer);
    }
}

TEST(SimulatedPlatform, ReadsTheProfileFileAgainForEachQuery)
{
    unsetenv("FA_PLATFORM_PROFILE");
    EXPECT_EQ(Int(), "0 1");  // of the sample
    const std::string path = testing::TempDir() + Format("fa-profile-%d.ini", getpid());
    setenv("FA_PLATFORM_PROFILE", path.c_str(), 1);
    for (const char* value : {"5", "6"}) {
        std::ofstream(path) << "[system_info_int]\n869=" << value << "\n";
        EXPECT_EQ(Int(), std::string("0 ") + value);
    }
    unlink(path.c_str());
    testing::internal::CaptureStderr();
    EXPECT_EQ(Int(), "-1 -77");
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

}  // namespace
