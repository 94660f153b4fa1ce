#include "support/simulated_set.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace
{

GPid Spawn(const Words& words, const std::string& outputFile)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        // No matter whether the tests run at a terminal or under nohup.
        setsid();
        std::signal(SIGHUP, SIG_DFL);
        const int output = open(outputFile.empty() ? "/dev/null" : outputFile.c_str(),
                                O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        closefrom(STDERR_FILENO + 1);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    return child;
}

int WaitFor(GPid child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int RunProgram(const Words& words, const std::string& outputFile)
{
    return WaitFor(Spawn(words, outputFile));
}

std::string TextOf(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

SimulatedSetTest::SimulatedSetTest()
{
    std::string name = (std::filesystem::temp_directory_path() / "fa-set-test-XXXXXX").string();
    folder = mkdtemp(name.data());
    std::ofstream(In("profile.ini")) << "[system_info_int]\n869=1\n284=6\n";
    setenv("FA_PLATFORM_PROFILE", In("profile.ini").c_str(), 1);
}

SimulatedSetTest::~SimulatedSetTest()
{
    if (set != 0) {
        Stop();
    }
    std::filesystem::remove_all(folder);
}

void SimulatedSetTest::Start(const Words& options)
{
    Words words{FA_SET_SIMULATOR, "--gap", "1"};
    for (const char* line : {"uart", "ss", "rjp", "ep"}) {
        words.insert(words.end(), {"--line", line + ("=" + In(line))});
    }
    words.insert(words.end(), options.begin(), options.end());
    set = Spawn(words, In("output"));
    g_autoptr(GDBusConnection) connection = bus.Connect();
    ASSERT_TRUE(Wait([&] {
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "NameHasOwner", g_variant_new("(s)", "org.kavra.tv.automation-service"), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        gboolean owned = FALSE;
        g_variant_get(reply, "(b)", &owned);
        return owned != FALSE;
    }));
}

void SimulatedSetTest::Stop(int signal, int status)
{
    kill(set, signal);
    EXPECT_EQ(WaitFor(std::exchange(set, 0)), status);
    EXPECT_FALSE(std::filesystem::is_symlink(In("uart")));
    EXPECT_FALSE(std::filesystem::is_symlink(In("ss")));
}

void SimulatedSetTest::Fault(const Words& words)
{
    Words all{FA_SET_SIMULATOR, "fault"};
    all.insert(all.end(), words.begin(), words.end());
    ASSERT_EQ(RunProgram(all), 0);
}

int SimulatedSetTest::OpenLine(const std::string& name) const
{
    return open(In(name).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

bool SimulatedSetTest::Wait(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        if (!g_main_context_iteration(nullptr, FALSE)) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    return true;
}

Bytes SimulatedSetTest::Read(int line, std::size_t count)
{
    Bytes bytes(count);
    std::size_t done = 0;
    pollfd readable{line, POLLIN, 0};
    while (done < count && poll(&readable, 1, 10000) == 1) {
        const ssize_t got = read(line, bytes.data() + done, count - done);
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}
