// The program: its command line, its ends, and the commands that it runs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <set>

#include "simulator/set_fixture.h"

namespace
{

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class RunTest : public SetTest
{
protected:
    // What a run leaves behind is found in here.
    RunTest()
    {
        std::filesystem::create_directory(In("tmp"));
        setenv("TMPDIR", In("tmp").c_str(), 1);
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // who is left behind becomes a child of the test
    }
    ~RunTest() override { EXPECT_TRUE(std::filesystem::is_empty(In("tmp"))); }

    // Runs the set to its end. The outputs are in `out` and `err`.
    int Run(const Words& words, const std::function<void()>& setUp = {})
    {
        std::filesystem::remove(In("out"));
        std::filesystem::remove(In("err"));
        return WaitFor(Spawn(words, In("out"), In("err"), setUp));
    }

    // Waits until the file is there and has something in it.
    std::string Await(const std::string& name) const
    {
        EXPECT_TRUE(Wait([&] { return TextOf(In(name)).find('\n') != std::string::npos; })) << name;
        return TextOf(In(name));
    }
};

TEST_F(RunTest, EndsWithAStatusAndAReason)
{
    ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(In("bin"));
    WriteText(In("bin/dbus-daemon"), "#!/bin/sh\necho 'no bus today' >&2\nexit 1\n");
    chmod(In("bin/dbus-daemon").c_str(), 0755);
    WriteText(In("plain"), "text");
    const std::string nowhere = In("nowhere");
    const struct {
        Words words;
        int status;
        std::string output;
        std::string complaint;
    } cases[] = {
        {{"run", "-q", "--", "sh", "-c", "test -w $FA_SET_RJP -a -r $FA_PLATFORM_PROFILE"},
         0,
         "",
         ""},
        {{"run", "-q", "sh", "-c", "echo out; echo err >&2; exit 7"}, 7, "out\n", "err\n"},
        {{"run", "true"}, 0, "", "set: the service is on the bus\n"},
        {{"run", "-q", "--", "sh", "-c", "kill -9 $$"}, 137, "", "ended by a signal: Killed\n"},
        {{"run", "-q", "--", "sh", "-c", "kill -TERM $PPID; sleep 20"}, 143, "", ""},
        {{"run", "-q", "sh", "-c", "kill -INT $PPID; exec sleep 200"}, 130, "", ""},
        {{"run", "-q", "sh", "-c", "kill -HUP $PPID; exec sleep 200"}, 129, "", ""},
        {{"run", "-q", "sh", "-c", "pkill -P $PPID dbus-daemon; exec sleep 200"},
         1,
         "",
         "bus is gone"},
        {{"run", "-q", "--timeout", "0.2", "sleep", "200"}, 124, "", "is ended after 200 ms\n"},
        {{"run", "-q", "sh", "-c",
          "echo > $FA_PLATFORM_PROFILE; gdbus call --system "
          "-d org.kavra.tv.automation-service -o /KVFacAutoObj "
          "-m org.kavra.tv.automationservice.CopyLogToUsb"},
         0,
         "((1,),)\n",
         ""},
        {{"run", "-q", "--", nowhere}, 127, "", "Failed to execute child process"},
        {{"run", "-q", "--", In("plain")}, 126, "", "Permission denied"},
        {{"run", "-q", "env", "PATH=" + In("bin"), FA_SET_SIMULATOR, "run", "true"},
         1,
         "",
         "bus: dbus-daemon does not start: no bus today\n"},
        {{"--version"}, 0, "fa-set-simulator ", ""},
        {{"--help"}, 0, "--reply-timeout=MS", ""},
        {{"run"}, 2, "", "fa-set-simulator: run needs a command (--help tells more)\n"},
        {{"-q", "run", "true"}, 2, "", "the word run comes first"},
        {{"cook"}, 2, "", "unknown word \"cook\""},
        {{"capture"}, 2, "", "capture needs one file"},
        {{"run", "-p", FA_SET_SIMULATOR, "true"}, 1, "", "profile " FA_SET_SIMULATOR ": "},
        {{"--line", "ss=x", "--line", "rjp=./x"}, 2, "", "two lines cannot both be ./x"},
        {{"--line", "usb=x"}, 2, "", "--line takes uart, ss, rjp or ep"},
        {{"--line", "ss="}, 2, "", "--line takes uart, ss, rjp or ep"},
        {{"fault", "clear"}, 1, "", "fa-set-simulator: fault: no set is on this bus\n"},
        {{"fault", "ss", "error"}, 2, "", ": fault: ss has no fault error (--help tells more)\n"},
        {{"fault", "all", "result"}, 2, "", "result needs a value"},
        {{"fault", "all", "result", "x"}, 2, "", "fault: “x” is not a signed number"},
        {{"fault", "all", "error", "times", "0"}, 2, "", "fault: Number “0” is out of bounds"},
        {{"fault", "all"}, 2, "", "a fault is TARGET KIND [VALUE] [times N]"},
        {{"--record", "", "-q"}, 2, "", "--record needs a path"},
        {{"--profile="}, 2, "", "--profile needs a path"},
        {{"--usb-dir="}, 2, "", "--usb-dir needs a path"},
        {{"--usb-dir", nowhere}, 1, "", "there is no folder " + nowhere},
        {{"run", "--log-dir", nowhere, "true"}, 1, "", "there is no folder " + nowhere},
        {{"-p", nowhere}, 1, "", "fa-set-simulator: profile " + nowhere + ": No such file"},
        {{"--record", nowhere + "/record"}, 1, "", "record " + nowhere + "/record: No such file"},
        {{"run", "--log", nowhere + "/log", "true"},
         1,
         "",
         "log " + nowhere + "/log: No such file"},
        {{"--gap", "-1"}, 2, "", "--gap takes 0 to 10000"},
        {{"--gap", "10001"}, 2, "", "--gap takes 0 to 10000"},
        {{"--seed", "x"}, 2, "", "--seed takes a number"},
        {{"run", "--timeout", "0", "true"}, 2, "", "--timeout takes 0.001 to"},
        {{"run", "--reply-timeout", "0", "true"}, 2, "", "--reply-timeout takes 1 to"},
        {{"run", "--log-priority", "X", "true"}, 2, "", "--log-priority takes one of"},
        {{"--timeout", "1"}, 2, "", "are options of run"},
        {{"--speed", "fast"}, 2, "", "--speed is fast or real, of a --replay"},
        {{"--replay", "x", "--speed", "slow"}, 2, "", "--speed is fast or real, of a --replay"},
        {{"--replay", "x", "--fault", "all error"}, 2, "", "by its recording alone"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(Run(each.words), each.status) << each.complaint;
        EXPECT_THAT(TextOf(In("out")), HasSubstr(each.output));
        EXPECT_THAT(TextOf(In("err")), HasSubstr(each.complaint));
        EXPECT_EQ(each.complaint.empty(), TextOf(In("err")).empty()) << TextOf(In("err"));
    }
    EXPECT_THAT(TextOf(In("profile.ini")), HasSubstr("284=6\n"));
    bus.Stop();
    EXPECT_EQ(Run({"-q"}), 1);
    EXPECT_THAT(TextOf(In("err")),
                MatchesRegex("fa-set-simulator: bus unix:[^ ]*: Could not connect: .*"
                             "run makes one of its own\\)\n"));
}

TEST_F(RunTest, TheCommandHasWhatItWasGiven)
{
    // Descriptors, and a bus whose limits no test reaches.
    EXPECT_EQ(Run({"run", "-q", "sh", "-c", "cat <&7; echo said >&8"},
                  [this] {
                      dup2(open(In("profile.ini").c_str(), O_RDONLY), 7);
                      dup2(open(In("seven").c_str(), O_WRONLY | O_CREAT, 0600), 8);
                  }),
              0);
    EXPECT_EQ(TextOf(In("out")), TextOf(In("profile.ini")));
    EXPECT_EQ(TextOf(In("seven")), "said\n");

    // A call without an answer fails when the bus says so, and the log is where it should be.
    const std::string script =
        "gdbus call --system -d org.kavra.tv.automation-service -o /KVFacAutoObj -m "
        "org.kavra.tv.automationservice.CloseExUart; echo $FA_PLATFORM_LOG "
        "$FA_PLATFORM_LOG_PRIORITY; exec 2>/dev/null; " FA_LOGGER " 2>&1";
    EXPECT_EQ(Run({"run", "-q", "--fault", "CloseExUart no-answer times 1", "--reply-timeout",
                   "300", "--log", In("log"), "--log-priority", "E", "sh", "-c", script}),
              0);
    EXPECT_THAT(TextOf(In("err")), HasSubstr("NoReply"));
    EXPECT_EQ(TextOf(In("out")), In("log") + " E\n");
    EXPECT_EQ(TextOf(In("log")), "E/FA_API: an error\nF/FA_API: the end\n");
}

TEST_F(RunTest, TheBusTakesManyClientsAndCalls)
{
    set = Spawn({"run", "-q", "--fault", "CloseExUart no-answer", "sh", "-c",
                 "echo $DBUS_SYSTEM_BUS_ADDRESS > " + In("address") + "; exec sleep 200"});
    const std::string address = Await("address");
    std::vector<GDBusConnection*> clients;
    for (int i = 0; i < 300; ++i) {
        clients.push_back(g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr));
        ASSERT_NE(clients.back(), nullptr) << i;
    }
    int failed = 0;
    const auto onReply = [](GObject* source, GAsyncResult* result, gpointer count) {
        g_autoptr(GVariant) reply =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr);
        *static_cast<int*>(count) += reply == nullptr ? 1 : 0;
    };
    for (int i = 0; i < 300; ++i) {
        g_dbus_connection_call(clients[0], "org.kavra.tv.automation-service", "/KVFacAutoObj",
                               "org.kavra.tv.automationservice", "CloseExUart", nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, onReply, &failed);
    }
    AwaitBus(clients[0]);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(failed, 0);
    Stop(SIGTERM, 143);
    EXPECT_TRUE(Wait([&] { return failed == 300; }));
    for (GDBusConnection* client : clients) {
        g_object_unref(client);
    }
}

TEST_F(RunTest, InheritedSignalsDoNotMatter)
{
    const auto setUp = [] {
        std::signal(SIGCHLD, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
    };
    EXPECT_EQ(Run({"run", "-q", "sh", "-c", "exit 7"}, setUp), 7);
    EXPECT_EQ(Run({"run", "-q", "--timeout", "0.2", "sleep", "200"}, setUp), 124);
    // A set under nohup stays so.
    set = Spawn({"run", "-q", "sh", "-c", "echo up > " + In("up") + "; exec sleep 200"}, "", "",
                [] { std::signal(SIGHUP, SIG_IGN); });
    Await("up");
    kill(set, SIGHUP);
    EXPECT_EQ(waitpid(set, nullptr, WNOHANG), 0);
    Stop(SIGTERM, 143);
}

bool IsFull(int pipe)
{
    int held = 0;
    return ioctl(pipe, FIONREAD, &held) == 0 && held > fcntl(pipe, F_GETPIPE_SZ) - 100;
}

TEST_F(RunTest, SignalsEndASetThatNobodyReadsOrAnswers)
{
    // Nobody reads what it prints.
    ASSERT_EQ(mkfifo(In("unread").c_str(), 0600), 0);
    set = Spawn({"--line", "uart=" + In("uart")}, "", "", [this] {
        dup2(open(In("unread").c_str(), O_RDWR), STDERR_FILENO);
        const std::string filling(static_cast<std::size_t>(fcntl(STDERR_FILENO, F_GETPIPE_SZ)) - 10,
                                  '.');
        [[maybe_unused]] const ssize_t written =
            write(STDERR_FILENO, filling.data(), filling.size());
    });
    const int held = open(In("unread").c_str(), O_RDWR);
    EXPECT_TRUE(Wait([this] { return std::filesystem::is_symlink(In("uart")); }));
    Stop(SIGTERM);

    close(held);

    // Nobody reads the record.
    ASSERT_EQ(mkfifo(In("fifo").c_str(), 0600), 0);
    const int reader = open(In("fifo").c_str(), O_RDWR);
    EXPECT_GT(fcntl(reader, F_SETPIPE_SZ, 4096), 0);
    Start({"--record", In("fifo")});
    for (int i = 0; i < 200; ++i) {
        g_dbus_connection_call(connection, "org.kavra.tv.automation-service", "/KVFacAutoObj",
                               "org.kavra.tv.automationservice", "CopyLogToUsb", nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    }
    EXPECT_TRUE(Wait([reader] { return IsFull(reader); }));
    Stop(SIGINT, 1);
    EXPECT_THAT(Output(), HasSubstr("fifo: nobody has read all of it\n"));
    close(reader);

    // The bus does not answer.
    const int mute = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    In("mute").copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(mute, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(mute, 5), 0);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + In("mute")).c_str(), 1);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        set = Spawn({"-q"});
        const int taken = accept(mute, nullptr, nullptr);
        Stop(signal);
        close(taken);
    }
    close(mute);
}

TEST_F(RunTest, EndsAreNoticed)
{
    for (const int signal : {SIGINT, SIGHUP, SIGTERM}) {
        Start();
        Stop(signal);
    }
    Start({"--quiet"});
    bus.Stop();
    Stop(0, 1);
    EXPECT_THAT(Output(), MatchesRegex("fa-set-simulator: the bus is gone[^\n]*\n"));
}

// Ctrl-C is the whole foreground's, and a signal for the run alone is passed on.
TEST_F(RunTest, InterruptsReachTheCommandOnce)
{
    const std::string script = "trap 'echo int >> " + In("ints") + "' INT; echo up > " + In("up") +
                               "; while [ ! -s " + In("done") + " ]; do sleep 0.05; done; exit 3";
    for (const bool typed : {true, false}) {
        std::filesystem::remove(In("up"));
        std::filesystem::remove(In("ints"));
        std::filesystem::remove(In("done"));
        int terminal = -1;
        const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            execl(FA_SET_SIMULATOR, FA_SET_SIMULATOR, "run", "-q", "sh", "-c", script.c_str(),
                  nullptr);
            _exit(127);
        }
        Await("up");
        if (typed) {
            EXPECT_EQ(write(terminal, "\x03", 1), 1);
        } else {
            kill(child, SIGINT);
        }
        Await("ints");
        g_usleep(200'000);
        WriteText(In("done"), "done\n");
        EXPECT_EQ(WaitFor(child), 3);
        EXPECT_EQ(TextOf(In("ints")), "int\n");
        close(terminal);
    }
}

std::set<pid_t> Children()
{
    std::ifstream file("/proc/self/task/" + std::to_string(getpid()) + "/children");
    return {std::istream_iterator<pid_t>(file), {}};
}

// Ended at any moment, a run leaves nobody who runs on but the command, and where it was killed its
// folder.
TEST_F(RunTest, NoEndLeavesABus)
{
    const std::set<pid_t> before = Children();
    for (int i = 0; i < 24; ++i) {
        const pid_t run = Spawn({"run", "-q", "sleep", "200"});
        g_usleep(static_cast<gulong>(i) * 2'500);
        kill(run, i % 2 == 0 ? SIGKILL : SIGTERM);
        EXPECT_THAT(WaitFor(run), ::testing::AnyOf(128 + SIGKILL, 128 + SIGTERM, 1));
        EXPECT_TRUE(Wait([&] {
            for (const pid_t child : Children()) {
                const std::string name = TextOf("/proc/" + std::to_string(child) + "/comm");
                if (before.count(child) == 0 && name == "sleep\n") {
                    kill(child, SIGKILL);
                }
                if (before.count(child) == 0) {
                    waitpid(child, nullptr, WNOHANG);
                }
            }
            return Children() == before;
        }));
    }
    std::filesystem::remove_all(In("tmp"));
    std::filesystem::create_directory(In("tmp"));
}

}  // namespace
