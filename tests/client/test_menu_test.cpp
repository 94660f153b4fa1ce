// The console dialogues, driven as a person drives them: through a pseudo-terminal, each entry
// typed once its prompt is there; and through a stream, as a script drives them.
#include <dlfcn.h>
#include <fa_api/automation_api.h>
#include <gtest/gtest.h>

#include <regex>

#include "support/platform_log.h"
#include "support/session.h"

using namespace std::string_literals;

namespace
{

const auto kLine = "====================================\n"s;
const auto kBanner = kLine + " Input the Packet Data\n" + kLine;
const auto kOpCode = "Input The op Code(99=Exit): 0x"s;
const auto kMessageCode = "Input The msg Code(99=Exit): 0x"s;
const auto kData = "enter the message code(99=Exit) : 0x"s;
const auto kTypeError = "Input Data type ERROR! \n"s;
const auto kDone = "ExecuteCommand -1\n"s;  // there is no bus
const auto kDataDone = "ExecuteCommandWithData -1\n"s;

bool releaseImage = false;

// Expects a dialogue to go as written, with the commands that it sends as lines of their own.
void ExpectSession(Input input, int (*dialogue)(), const std::string& script)
{
    const auto program = [=] {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        WatchLog([](const std::string& line) {
            const auto sent = std::min(line.find("Data0["), line.find("command data["));
            std::printf("%s", sent != std::string::npos ? (line.substr(sent) + "\n").c_str() : "");
        });
        return dialogue();
    };
    EXPECT_EQ(Play(input, program, script), 0);
}

}  // namespace

// The library looks for the mark of a release image through this function.
FILE* fopen(const char* path, const char* mode)
{
    static const auto open = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return open(releaseImage && path == "/etc/release"s ? "/dev/null" : path, mode);
}

TEST(TestMenu, EntriesAreSentUntil99)
{
    const auto packet =
        kBanner + kOpCode + "{1\n}" + kMessageCode + "{2\n}" +
        "OP Code is 0x1 \nmsg Code is 0x2 \nData0[1] Data1[2]\n" + kDone + kOpCode + "{zz 7 zz\n}" +
        kTypeError + kOpCode + "{153 9\n}" + kMessageCode + "{-\n}" + kTypeError + kOpCode +
        "{100000001\n}" + kTypeError + kOpCode + "{-fffffffffffffff1\n}" + kTypeError + kOpCode +
        "{63 99\n}" + kMessageCode +
        "{ffFFffff\n}"
        "OP Code is 0x63 \nmsg Code is 0xffffffff \nData0[63] Data1[ffffffff]\nExecuteCommand "
        "-1\n" +
        kOpCode + "{5\n}" + kMessageCode + "{99\n}";
    const auto data = kOpCode + "{153\n}" + kMessageCode + "{zz 1 2\n}" + kTypeError + kOpCode +
                      "{- 1\n}" + kTypeError + kOpCode + "{ -fffffffffffffff1 1\n}" + kTypeError +
                      kOpCode + "{1\n}" + kMessageCode + "{2\n}" + kData +
                      "{9 41\n}bint is input[0] : 9, msgArr[0] : 9\n"
                      "bint is input[2] : 41, msgArr[1] : 41\n0th element of list :\t\n"
                      "1th element of list :A\nwhole data : \tA\nData0[1] Data1[2], length[2]\n"
                      "command data[0]: 9\ncommand data[1]: 65\n" +
                      kDataDone + kOpCode + "{3\n}" + kMessageCode + "{4\n}" + kData +
                      "{00 99\0\n}bint is input[0] : 0, msgArr[0] : 0\n"s +
                      "bint is input[3] : 99, msgArr[1] : 99\nunsigned char array is empty\n"
                      "Data0[3] Data1[4], length[2]\ncommand data[0]: 0\ncommand data[1]: 153\n" +
                      kDataDone + kOpCode + "{5\n}" + kMessageCode + "{6\n}" + kData + "{99 00\n}";
    for (const auto input : {kTerminal, kUnbufferedTerminal, kStream}) {
        ExpectSession(input, input_packet_data, packet);
        ExpectSession(input, input_multiple_packet_data, data);
    }
}

// At a terminal it is a slip of the keyboard, in a script the next entries.
TEST(TestMenu, WhatIsTypedAheadIsThrownAwayAtATerminalOnly)
{
    for (const auto input : {kTerminal, kUnbufferedTerminal}) {
        ExpectSession(input, input_packet_data,
                      kBanner + kOpCode + "{zz\n7\n}" + kTypeError + kOpCode + "{99\n}");
    }
    ExpectSession(kStream, input_packet_data,
                  kBanner + kOpCode + "{1\n2\n99\n}" + kMessageCode +
                      "OP Code is 0x1 \nmsg Code is 0x2 \nData0[1] Data1[2]\n" + kDone + kOpCode);
}

TEST(TestMenu, EndOfInputLeavesTheDialogueThatReadsIt)
{
    const auto packet = [] { return input_packet_data() + input_packet_data(); };
    const auto data = [] { return input_multiple_packet_data() + input_multiple_packet_data(); };
    const auto codes = kOpCode + "{1\n}" + kMessageCode;
    ExpectSession(kTerminal, packet, kBanner + kOpCode + "{\4}" + kBanner + codes + "{\4}");
    ExpectSession(kTerminal, data,
                  codes + "{2\n}" + kData + "{\4}Input ERROR! \n" + codes + "{\4}");
    ExpectSession(kStream, input_packet_data, kBanner + kOpCode + "{zz}" + kTypeError + kOpCode);
    ExpectSession(kStream, input_multiple_packet_data,
                  kOpCode + "{1\n2\n}" + kMessageCode + kData + "Input ERROR! \n");
}

TEST(TestMenu, SurplusOfALongLineIsDropped)
{
    std::string typed, converted, echoed, sent;
    for (int count = 0; count < 50; ++count) {
        typed += "41 ";
        const auto index = std::to_string(count);
        if (count < 31) {
            converted += "bint is input[" + std::to_string(3 * count) + "] : 41, msgArr[" + index +
                         "] : 41\n";
            echoed += index + "th element of list :A\n";
            sent += "command data[" + index + "]: 65\n";
        }
    }
    ExpectSession(kStream, input_multiple_packet_data,
                  kOpCode + "{1\n2\n" + typed + "\n99\n}" + kMessageCode + kData + converted +
                      echoed + "whole data : " + std::string(31, 'A') +
                      "\nData0[1] Data1[2], length[31]\n" + sent + kDataDone + kOpCode);
    ExpectSession(
        kStream, input_multiple_packet_data,
        kOpCode + "{1\n2\n" + std::string(97, ' ') + "4142\n99\n}" + kMessageCode + kData +
            "bint is input[0] : 41, msgArr[0] : 41\nbint is input[97] : 41, msgArr[1] : 41\n0th "
            "element of list :A\n1th element of list :A\nwhole data : AA\nData0[1] Data1[2], "
            "length[2]\ncommand data[0]: 65\ncommand data[1]: 65\n" +
            kDataDone + kOpCode);
}

TEST(TestMenu, TokensFollowTheirRules)
{
    const std::pair<std::string, std::string> cases[] = {
        {"5 a B\n", "0:5=5 2:a=a 4:b=b "},
        {"12\t34  5 \n", "0:12=12 3:34=34 7:5=5 "},
        {"12 34", "0:12=12 3:34=34 "},
        {"5 a", "0:5=5 "},  // a single last digit needs something behind it
        {"5", "0:5=5 "},
        {"\n", "0:0=0 "},
        {" 12\n", "0:12=12 1:12=12 "},
        {"1234 567\n", "0:1234=34 1:234=34 2:34=34 5:567=67 6:67=67 "},
        {"xyz 1g g1\n", "0:0=0 1:0=0 4:1=1 7:0=0 "},
        {"", "char array is null\n"},
    };
    const std::regex line("bint is input\\[(\\d+)\\] : (\\w+), msgArr\\[\\d+\\] : (\\w+)\n");
    for (const auto& [text, tokens] : cases) {
        testing::internal::CaptureStdout();
        std::vector<unsigned char> bytes(40, 0xa5);
        const int count = ospd_char_to_hexadecimal(0, 0, 0, std::string(text).data(), bytes.data());
        EXPECT_EQ(count, std::count(tokens.begin(), tokens.end(), '='));
        EXPECT_EQ(std::regex_replace(testing::internal::GetCapturedStdout(), line, "$1:$2=$3 "),
                  tokens);
        EXPECT_EQ(bytes[static_cast<std::size_t>(count)], 0xa5) << text;
    }
}

TEST(TestMenu, ArraysArePrintedAsFarAsTheirFirstZero)
{
    testing::internal::CaptureStdout();
    unsigned char bytes[] = {'A', 0x80, 0, 'B'};
    EXPECT_EQ(ospd_print_array(bytes), 2);
    EXPECT_EQ(ospd_print_array(bytes + 2), 0);
    EXPECT_EQ(ospd_print_array(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "0th element of list :A\n1th element of list :\x80\nwhole data : A\x80\n"
              "unsigned char array is empty\nunsigned char array is empty\n");
}

TEST(TestMenu, ReleaseImageRefusesThePacketDialogues)
{
    releaseImage = true;
    ExpectSession(kStream, input_packet_data, "Release image is NOT SUPPORT! \n");
    ExpectSession(kStream, input_multiple_packet_data, "Release image is NOT SUPPORT! \n");
    const auto menu = kLine + "This test does not support anything\n" + kLine + "99 << : Exit\n" +
                      kLine + "Please Select a menu >> ";
    ExpectSession(
        kTerminal, [] { return input_ir_blaster() - 99; }, menu + "{153\n}" + menu + "{99\n}");
}
