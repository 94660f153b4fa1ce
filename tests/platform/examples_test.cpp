// The example programs as a person runs them: what they show, and how they end when something is
// wrong. Beside them stands a scripted service.
#include <fcntl.h>
#include <gtest/gtest.h>
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

// What the command shows, and the status that it ends with.
std::string Shell(const std::string& command)
{
    FILE* program = popen((command + "; echo \"ends with $?\"").c_str(), "r");
    std::string output;
    for (int c = 0; (c = std::fgetc(program)) != EOF;) {
        output += static_cast<char>(c);
    }
    pclose(program);
    return output;
}

std::string Expected(const std::string& name)
{
    std::stringstream file;
    file << std::ifstream(TEST_PLATFORM + name).rdbuf();
    return file.str();
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

constexpr char kConversation[] = FA_CONVERSATION " 2>/dev/null";

TEST_F(ConversationTest, GoesThroughEveryStep)
{
    auto run = std::async(std::launch::async, [] { return Shell(kConversation); });
    while (run.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        for (const char* signal : {"ss_handler", "rjp_handler", "ep_handler"}) {
            service.Emit(signal);
        }
    }
    EXPECT_TRUE(Same(Expected("conversation.txt") + "ends with 0\n", run.get()));
}

TEST_F(ConversationTest, NamesTheStepThatFails)
{
    // The conversation goes as far as the step, and ends after the reason that is shown.
    const auto fails = [](int number, const std::string& reason = "") {
        const std::string text = Expected("conversation.txt");
        const std::size_t step = text.find(Format("%2d. ", number)) + 4;
        const std::size_t end = text.find('\n', step);
        EXPECT_TRUE(Same(text.substr(0, end + 1) + reason + Format("FAILED at step %d: ", number) +
                             text.substr(step, end - step) +
                             ". The platform log on standard error says why.\nends with 1\n",
                         Shell(kConversation)));
    };
    fails(15, "   the callback received: nothing\n");  // the service announces none
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
    const std::string shown = Shell(FA_INSPECTION_RUN " /nonexistent 2>&1 >/dev/null");
    EXPECT_EQ(shown.substr(shown.find("fa-inspection-run:")),
              "fa-inspection-run: cannot write /nonexistent/report-simple.txt: No such file or "
              "directory\nends with 1\n");
}

TEST(Examples, WrongCommandLinesAreRefusedAndHelpIsGiven)
{
    for (const std::string program : {FA_CONVERSATION, FA_INSPECTION_RUN, FA_TEST_MENU}) {
        const std::string usage =
            "usage: " + std::filesystem::path(program).filename().string() + " [--help]";
        for (const std::string option :
             {" --help 2>/dev/null", " -h 2>/dev/null", " --wrong 2>&1 >/dev/null"}) {
            const std::string shown = Shell(program + option);
            EXPECT_EQ(shown.substr(0, usage.size()), usage);
            EXPECT_EQ(shown.substr(shown.size() - 2), option[3] == 'w' ? "2\n" : "0\n") << option;
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
    const std::string session = Expected("console.txt");
    EXPECT_EQ(Play(kTerminal, console, session), 0);
    EXPECT_EQ(Play(kTerminal, console, session.substr(0, session.find('{')) + "{\4}"), 0);
}

}  // namespace
