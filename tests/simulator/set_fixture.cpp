#include "simulator/set_fixture.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <regex>
#include <thread>
#include <utility>

namespace
{

constexpr char kService[] = "org.kavra.tv.automation-service";
constexpr char kContract[] = "org.kavra.tv.automationservice";
constexpr char kControl[] = "org.kavra.tv.automationservice.Simulator";
constexpr auto kDeadline = std::chrono::seconds(30);

void Redirect(const std::string& path, int descriptor)
{
    const int file = open(path.empty() ? "/dev/null" : path.c_str(),
                          O_WRONLY | O_CREAT | O_APPEND | O_NOCTTY, 0600);
    dup2(file, descriptor);
    close(file);
}

// Of the arguments of a method of either interface; of one that is not known, none.
const GVariantType* TypeOf(const std::string& method)
{
    const struct {
        const char* method;
        const char* type;
    } types[] = {
        {"SendRS232Ack", "(iiau)"},
        {"SendMessageByExUart", "(iau)"},
        {"SendRjpData", "(iau)"},
        {"ExecuteCommand", "(ii)"},
        {"ChangeBaudRateExUart", "(i)"},
        {"ExecuteCommandWithData", "(iiaui)"},
        {"AddRules", "(s)"},
        {"GetCalls", "(s)"},
        {"ChangePacketLengthSerialSource", "(i)"},
        {"SetFault", "(ssiu)"},
        {"WritePacket", "(say)"},
    };
    for (const auto& each : types) {
        if (method == each.method) {
            return G_VARIANT_TYPE(each.type);
        }
    }
    return G_VARIANT_TYPE("()");
}

}  // namespace

pid_t Spawn(const Words& words, const std::string& outputFile, const std::string& errorFile,
            const std::function<void()>& setUp)
{
    std::string program = FA_SET_SIMULATOR;
    std::vector<char*> arguments{program.data()};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        // No matter whether the tests run at a terminal or under nohup.
        setsid();
        std::signal(SIGHUP, SIG_DFL);
        Redirect(outputFile, STDOUT_FILENO);
        Redirect(errorFile, STDERR_FILENO);
        closefrom(STDERR_FILENO + 1);
        if (setUp) {
            setUp();
        }
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    return child;
}

int WaitFor(pid_t child)
{
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunSet(const Words& words, const std::string& outputFile)
{
    return WaitFor(Spawn(words, outputFile, outputFile));
}

std::string TextOf(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteText(const std::string& path, const std::string& text)
{
    std::ofstream(path) << text;
}

std::string WithoutTimes(const std::string& text)
{
    static const std::regex time(R"("time":[0-9.]+,)");
    return std::regex_replace(text, time, "");
}

SetTest::SetTest()
{
    std::string name = (std::filesystem::temp_directory_path() / "fa-set-test-XXXXXX").string();
    folder = mkdtemp(name.data());
    WriteText(In("profile.ini"), "# a comment\n\n[system_info_int]\n869=1\n284=6\n");
    setenv("FA_PLATFORM_PROFILE", In("profile.ini").c_str(), 1);
    connection = bus.Connect();
    const auto onSignal = [](GDBusConnection*, const char*, const char*, const char*,
                             const char* signal, GVariant* values, gpointer texts) {
        const char* text = "";
        g_variant_get(values, "(&s)", &text);
        const std::string line = std::string(signal).substr(0, std::string(signal).find('_'));
        static_cast<Words*>(texts)->push_back(line + " " + text);
    };
    Subscribe(kService, kContract, nullptr, onSignal, &announcements);
}

void SetTest::Subscribe(const char* sender, const char* interface, const char* signal,
                        GDBusSignalCallback function, gpointer data)
{
    subscriptions.push_back(
        g_dbus_connection_signal_subscribe(connection, sender, interface, signal, nullptr, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, function, data, nullptr));
}

SetTest::~SetTest()
{
    for (const guint id : subscriptions) {
        g_dbus_connection_signal_unsubscribe(connection, id);
    }
    if (set != 0) {
        Stop();
    }
    g_object_unref(connection);
    std::filesystem::remove_all(folder);
}

void SetTest::Start(const Words& options)
{
    Words words{"--gap", "1"};
    for (const char* line : {"uart", "ss", "rjp", "ep"}) {
        words.insert(words.end(), {"--line", line + ("=" + In(line))});
    }
    words.insert(words.end(), options.begin(), options.end());
    std::filesystem::remove(In("output"));
    set = Spawn(words, In("output"), In("output"));
    ASSERT_TRUE(Wait([&] {
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "NameHasOwner", g_variant_new("(s)", kService), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, nullptr);
        gboolean owned = FALSE;
        g_variant_get(reply, "(b)", &owned);
        return owned != FALSE;
    })) << Output();
}

void SetTest::Stop(int signal, int status)
{
    kill(set, signal);
    EXPECT_EQ(WaitFor(std::exchange(set, 0)), status) << Output();
    for (const char* line : {"uart", "ss", "rjp", "ep"}) {
        EXPECT_FALSE(std::filesystem::is_symlink(In(line))) << line;
    }
}

std::string SetTest::Send(const char* interface, const std::string& method,
                          const std::string& arguments)
{
    g_autoptr(GError) error = nullptr;
    GVariant* values = g_variant_parse(TypeOf(method), arguments.c_str(), nullptr, nullptr, &error);
    EXPECT_NE(values, nullptr) << arguments;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        connection, kService, "/KVFacAutoObj", interface, method.c_str(), values, nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        g_autofree char* name = g_dbus_error_get_remote_error(error);
        g_dbus_error_strip_remote_error(error);
        const std::string text = name != nullptr ? name : "";
        return text.substr(text.rfind('.') + 1) + ": " + error->message;
    }
    g_autofree char* printed = g_variant_print(reply, FALSE);
    const std::string text = printed;
    return text.substr(1, text.size() - (text.substr(text.size() - 2) == ",)" ? 3 : 2));
}

std::string SetTest::Call(const std::string& method, const std::string& arguments)
{
    return Send(kContract, method, arguments);
}

std::string SetTest::Ask(const std::string& method, const std::string& arguments)
{
    return Send(kControl, method, arguments);
}

Words SetTest::Announcements()
{
    AwaitBus(connection);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    return std::exchange(announcements, {});
}

Words SetTest::AwaitAnnouncements(std::size_t count)
{
    EXPECT_TRUE(Wait([&] { return announcements.size() >= count; })) << Output();
    return std::exchange(announcements, {});
}

int SetTest::OpenLine(const std::string& name) const
{
    return open(In(name).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

void SetTest::Write(const std::string& line, const std::string& bytes) const
{
    const int file = OpenLine(line);
    EXPECT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(file);
}

std::string SetTest::Read(int line, std::size_t count)
{
    std::string bytes(count, '\0');
    std::size_t done = 0;
    pollfd readable{line, POLLIN, 0};
    while (done < count && poll(&readable, 1, 20'000) == 1) {
        const ssize_t got = read(line, bytes.data() + done, count - done);
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

std::string SetTest::Read(const std::string& line, std::size_t count) const
{
    const int file = OpenLine(line);
    std::string bytes = Read(file, count);
    close(file);
    return bytes;
}

bool SetTest::Wait(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        if (!g_main_context_iteration(nullptr, FALSE)) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    return true;
}
