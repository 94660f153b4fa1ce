// The console dialogues, driven as a person drives them: through a pseudo-terminal, each entry
// typed once its prompt is there; and through a stream, as a script drives them.
#include <dlfcn.h>
#include <fa_api/automation_api.h>

#include "support/platform_log.h"
#include "support/session.h"

using namespace std::string_literals;

namespace
{

bool releaseImage = false;

// In the file, ^D stands for the end of input, ^@ for a zero byte.
constexpr char kSessions[] = TESTS "client/dialogues.txt";

// Expects a dialogue to go as written, with the commands that it sends as lines of their own.
void ExpectSession(Input input, const std::function<int()>& dialogue, std::string script)
{
    const auto program = [=] {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        WatchLog([](const std::string& line) {
            const auto sent = std::min(line.find("Data0["), line.find("command data["));
            std::printf("%s", sent != std::string::npos ? (line.substr(sent) + "\n").c_str() : "");
        });
        return dialogue();
    };
    script = std::regex_replace(script, std::regex("\\^D"), "\4");
    script = std::regex_replace(script, std::regex("\\^@"), "\0"s);
    EXPECT_EQ(Play(input, program, script), 0);
}

}  // namespace

// The library looks for the mark of a release image through this function.
FILE* fopen(const char* path, const char* mode)
{
    static const auto open = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return open(releaseImage && path == "/etc/release"s ? "/dev/null" : path, mode);
}

TEST(TestMenu, DialoguesGoAsWritten)
{
    const std::vector<Input> terminals{kTerminal, kUnbufferedTerminal};
    const std::vector<Input> all{kTerminal, kUnbufferedTerminal, kStream};
    const auto twice = [](int (*dialogue)()) { return [=] { return dialogue() + dialogue(); }; };
    const std::tuple<std::string, std::vector<Input>, std::function<int()>> sessions[] = {
        {"codes", all, input_packet_data},
        {"codes and data", all, input_multiple_packet_data},
        // Typed ahead is a slip of the keyboard at a terminal, and the next entries in a script.
        {"typed ahead at a terminal", terminals, input_packet_data},
        {"a script of codes", {kStream}, input_packet_data},
        {"the end of codes, twice", {kTerminal}, twice(input_packet_data)},
        {"the end of data, then of codes", {kTerminal}, twice(input_multiple_packet_data)},
        {"a script that ends in a code", {kStream}, input_packet_data},
        {"a script that ends in the data", {kStream}, input_multiple_packet_data},
        {"a line of 101 characters", {kStream}, input_multiple_packet_data},
    };
    for (const auto& [title, inputs, dialogue] : sessions) {
        for (const Input input : inputs) {
            SCOPED_TRACE(title + Format(", input %d", input));
            ExpectSession(input, dialogue, Section(kSessions, title));
        }
    }
}

TEST(TestMenu, SurplusOfALongLineIsDropped)
{
    const std::string typed = std::regex_replace(std::string(50, '-'), std::regex("-"), "41 ");
    std::string converted, echoed, sent;
    for (int count = 0; count < 31; ++count) {
        converted += Format("bint is input[%d] : 41, msgArr[%d] : 41\n", 3 * count, count);
        echoed += Format("%dth element of list :A\n", count);
        sent += Format("command data[%d]: 65\n", count);
    }
    const auto opCode = "Input The op Code(99=Exit): 0x"s;
    for (const std::size_t length : {98U, 150U}) {
        ExpectSession(
            kStream, input_multiple_packet_data,
            opCode + "{1\n2\n" + typed.substr(0, length) +
                "\nzz\n99\n}Input The msg Code(99=Exit): 0xenter the message code(99=Exit) "
                ": 0x" +
                converted + echoed + "whole data : " + std::string(31, 'A') +
                "\nData0[1] Data1[2], length[31]\n" + sent + "ExecuteCommandWithData -1\n" +
                opCode + "Input Data type ERROR! \n" + opCode);
    }
}

TEST(TestMenu, TokensFollowTheirRules)
{
    const std::pair<std::string, std::string> cases[] = {
        {"5 a\tB\n", "0:5=5 2:a=a 4:b=b "},
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
    // Nothing stays open.
    const auto refused = [] { return input_packet_data() + dup(STDIN_FILENO) - 3; };
    ExpectSession(kStream, refused, "Release image is NOT SUPPORT! \n");
    ExpectSession(kStream, input_multiple_packet_data, "Release image is NOT SUPPORT! \n");
    const auto menu = Section(kSessions, "the menu of the IR blaster");
    const auto blaster = [] { return input_ir_blaster() - 99; };
    ExpectSession(kTerminal, blaster, menu + "{153\n}" + menu + "{99\n}");
    ExpectSession(kStream, blaster, menu + "{zz}");
}
