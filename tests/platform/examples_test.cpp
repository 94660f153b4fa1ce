// The example programs as a person runs them: what they show, and how they end when something is
// wrong. Beside them stands a scripted service.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "support/private_bus.h"
#include "support/scripted_service.h"
#include "support/session.h"
#include "support/trace.h"

namespace
{

struct Ended {
    std::string output;
    int status;
};

Ended RunCommand(const std::string& command)
{
    FILE* program = popen(command.c_str(), "r");
    std::string output;
    for (int c = 0; (c = std::fgetc(program)) != EOF;) {
        output += static_cast<char>(c);
    }
    const int status = pclose(program);
    return {output, WEXITSTATUS(status)};
}

const std::vector<std::string> kSteps = {
    "execute command 0x10/0x01",
    "execute command 0x10/0x02 with the data 02 10 FF 03",
    "switch the set to local set 15, EU_TURKEY",
    "set the external UART to 115200 bits per second",
    "send 02 10 FF 03 over the external UART",
    "read it as the device on the UART does",
    "send 02 10 FF 03 as RJP data",
    "read it as the device on the RJP line does",
    "send 02 10 FF 03 as an RS-232 acknowledgement",
    "read it as the device on the SS line does",
    "make serial source (SS) packets 4 bytes long",
    "register a callback for SS",
    "register a callback for RJP",
    "register a callback for EP",
    "receive 4 bytes on the SS line",
    "receive 4 bytes on the RJP line",
    "receive 4 bytes on the EP line",
    "unregister the SS callback",
    "unregister the RJP callback",
    "unregister the EP callback",
    "copy the set's logs to USB storage",
    "close the external UART",
};

// What the conversation shows as far as the step that fails; 0 is none. `reason` is shown before.
std::string Shown(std::size_t failing, const std::string& reason)
{
    std::string text;
    for (std::size_t number = 1; number <= kSteps.size(); ++number) {
        const std::string& step = kSteps[number - 1];
        text += Format("%2zu. %s\n", number, step.c_str());
        if (number == failing) {
            return text + reason +
                   Format(
                       "FAILED at step %zu: %s. The platform log on standard "
                       "error says why.\n",
                       number, step.c_str());
        }
        const bool reads = number == 6 || number == 8 || number == 10;
        text += reads                          ? "   the other end received: 02 10 FF 03\n"
                : number >= 15 && number <= 17 ? "   the callback received: 02 10 FF 03\n"
                                               : "";
    }
    return text + "All 22 steps went well.\n";
}

class ConversationTest : public ::testing::Test
{
protected:
    ConversationTest()
    {
        std::string name = testing::TempDir() + "fa-conversation-XXXXXX";
        folder = mkdtemp(name.data());
        std::ofstream(folder + "/profile.ini") << "[system_info_int]\n869=1\n284=15\n";
        setenv("FA_PLATFORM_PROFILE", (folder + "/profile.ini").c_str(), 1);
        for (const std::string line : {"UART", "RJP", "SS", "EP"}) {
            std::ofstream(folder + "/" + line) << "\x02\x10\xFF\x03";
            setenv(("FA_SET_" + line).c_str(), (folder + "/" + line).c_str(), 1);
        }
        for (const char* method :
             {"GetSsProtocolData", "GetRjpProtocolData", "GetEpProtocolData"}) {
            service.Answer(method, "(@au [4, 2, 16, 255, 3], (1,))");
        }
    }
    ~ConversationTest() override { std::filesystem::remove_all(folder); }

    std::string folder;
    PrivateBus bus;
    ScriptedService service{bus};
};

TEST_F(ConversationTest, GoesThroughEveryStep)
{
    auto run =
        std::async(std::launch::async, [] { return RunCommand(FA_CONVERSATION " 2>/dev/null"); });
    while (run.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        for (const char* signal : {"ss_handler", "rjp_handler", "ep_handler"}) {
            service.Emit(signal);
        }
    }
    const Ended ended = run.get();
    EXPECT_TRUE(Same(Shown(0, ""), ended.output));
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ConversationTest, NamesTheStepThatFails)
{
    const auto fails = [](std::size_t step, const std::string& reason = "") {
        const Ended ended = RunCommand(FA_CONVERSATION " 2>/dev/null");
        EXPECT_TRUE(Same(Shown(step, reason), ended.output));
        EXPECT_EQ(ended.status, 1);
    };
    service.Answer("SendRS232Ack", "((0,),)");
    fails(9);
    std::filesystem::resize_file(folder + "/RJP", 0);
    fails(8, "   the other end received: nothing\n");
    unsetenv("FA_SET_UART");
    fails(6,
          "   no serial line in FA_SET_UART: is this run by fa-set-simulator?\n"
          "   the other end received: nothing\n");
    service.Answer("ExecuteCommandWithData", "!not today");
    fails(2);
    service.Leave();
    fails(1);
}

TEST(Examples, TheInspectionRunSaysWhatItCannotWrite)
{
    const Ended ended = RunCommand(FA_INSPECTION_RUN " /nonexistent 2>&1 >/dev/null");
    const std::string reason =
        "fa-inspection-run: cannot write /nonexistent/report-simple.txt: No such file or "
        "directory\n";
    EXPECT_EQ(ended.output.substr(ended.output.find("fa-inspection-run:")), reason);
    EXPECT_EQ(ended.status, 1);
}

TEST(Examples, WrongCommandLinesAreRefusedAndHelpIsGiven)
{
    for (const std::string program : {FA_CONVERSATION, FA_INSPECTION_RUN, FA_TEST_MENU}) {
        const std::string usage =
            "usage: " + std::filesystem::path(program).filename().string() + " [--help]";
        for (const char* option :
             {" --help 2>/dev/null", " -h 2>/dev/null", " --wrong 2>&1 >/dev/null"}) {
            const Ended ended = RunCommand(program + option);
            EXPECT_EQ(ended.output.substr(0, usage.size()), usage);
            EXPECT_EQ(ended.status, option[3] == 'w' ? 2 : 0) << option;
        }
    }
}

// At a terminal, through the real simulated platform.
TEST(Examples, TheConsoleOffersItsDialogues)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    const auto console = [] {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // the platform log
        execl(FA_TEST_MENU, FA_TEST_MENU, nullptr);
        return 127;
    };
    const std::string menu =
        " 1 << : Send a command: op code and message code\n 2 << : Send a command with data\n"
        " 3 << : IR blaster\n99 << : Exit\nPlease Select a menu >> ";
    const std::string line = "====================================\n";
    const std::string ir = line + "This test does not support anything\n" + line +
                           "99 << : Exit\n" + line + "Please Select a menu >> ";
    const std::string opCode = "Input The op Code(99=Exit): 0x";
    const std::string messageCode = "Input The msg Code(99=Exit): 0x";
    const std::string script = menu + "{4\n}" + menu + "{x\n}" + menu + "{3\n}" + ir + "{1\n}" +
                               ir + "{99\n}" + menu + "{1\n}" + line + " Input the Packet Data\n" +
                               line + opCode + "{12\n}" + messageCode +
                               "{3\n}OP Code is 0x12 \nmsg Code is 0x3 \nExecuteCommand -1\n" +
                               opCode + "{99\n}" + menu + "{2\n}" + opCode + "{1\n}" + messageCode +
                               "{2\n}enter the message code(99=Exit) : 0x{99\n}" + menu;
    EXPECT_EQ(Play(kTerminal, console, script + "{99\n}"), 0);
    EXPECT_EQ(Play(kTerminal, console, menu + "{\4}"), 0);
}

}  // namespace
