#include <fa_api/testing/simulated_set.h>

#include <fcntl.h>
#include <gio/gio.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

namespace fa
{

namespace
{

using Words = std::vector<std::string>;
using Variables = std::initializer_list<const char*>;

constexpr std::chrono::milliseconds kPause{1};
constexpr std::chrono::milliseconds kPatience{20'000};
constexpr std::chrono::milliseconds kTimeToEnd{2000};  // after a set has left the bus
constexpr Variables kSetVariables = {"FA_SET_UART", "FA_SET_SS", "FA_SET_RJP", "FA_SET_EP",
                                     "FA_PLATFORM_PROFILE"};
constexpr Variables kLines = {"uart", "ss", "rjp", "ep"};  // in the order of their variables

std::string Deadline()
{
    return std::to_string(SimulatedSet::deadline.count()) + " ms";
}

// A command that runs another one, a shell that tells variables and then waits for the end of its
// standard input. We hold the other end: it closes when we close it, or when this process ends in
// whatever way.
class HeldCommand
{
public:
    explicit HeldCommand(Words command, Variables variables);
    ~HeldCommand();
    HeldCommand(const HeldCommand&) = delete;
    HeldCommand& operator=(const HeldCommand&) = delete;

    // Waits until the variables are told, and returns their values.
    Words Values();
    // Lets it end and returns its exit status.
    int End();
    // How it has ended, if it has within the time, and what it has written on standard error.
    std::string Account(std::chrono::milliseconds time = {});

private:
    // Lets it end for so long, and then makes it and its children end.
    void Stop(std::chrono::milliseconds time);
    // Waits for the end for so long.
    bool HasEnded(std::chrono::milliseconds time);

    std::string name_;
    std::size_t count_;
    GPid process_ = 0;
    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
    int status_ = 0;
};

HeldCommand::HeldCommand(Words command, Variables variables)
    : name_(command[0]), count_(variables.size())
{
    std::string script = "printf '%s\\0'";
    for (const char* variable : variables) {
        script.append(" \"$").append(variable).append("\"");
    }
    command.insert(command.end(), {"--", "sh", "-c", script + "; exec cat >/dev/null"});
    std::vector<char*> arguments;
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    errors_ = memfd_create("errors", MFD_CLOEXEC);
    // A group of its own: what is typed at the test's terminal, such as Ctrl-C for a debugger, is
    // not for the set.
    const auto setUp = [](gpointer errors) {
        setpgid(0, 0);
        dup2(*static_cast<int*>(errors), STDERR_FILENO);
    };
    constexpr auto kFlags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_CLOEXEC_PIPES);
    g_autoptr(GError) error = nullptr;
    if (!g_spawn_async_with_pipes(nullptr, arguments.data(), nullptr, kFlags, setUp, &errors_,
                                  &process_, &input_, &output_, nullptr, &error)) {
        close(errors_);
        throw SetFailure(std::string(error->message) +
                         ". Install the packages fa-api-tools and dbus-daemon, or put the folder "
                         "of fa-set-simulator into PATH, or name the program in FA_SET_SIMULATOR");
    }
}

HeldCommand::~HeldCommand()
{
    Stop({});
    close(output_);
    close(errors_);
}

Words HeldCommand::Values()
{
    Words values(1);
    const auto end = std::chrono::steady_clock::now() + SimulatedSet::deadline;
    while (values.size() <= count_) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd readable{output_, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0) {
            throw SetFailure(name_ + " is not ready after " + Deadline() + Account());
        }
        char byte = 0;
        if (read(output_, &byte, 1) != 1) {
            End();
            throw SetFailure(name_ + " is not ready" + Account());
        }
        if (byte == '\0') {
            values.emplace_back();
        } else {
            values.back() += byte;
        }
    }
    values.pop_back();
    return values;
}

int HeldCommand::End()
{
    Stop(std::max(SimulatedSet::deadline, kPatience));  // which a test may have made short
    return status_;
}

void HeldCommand::Stop(std::chrono::milliseconds time)
{
    if (input_ >= 0) {
        close(std::exchange(input_, -1));
    }
    if (!HasEnded(time)) {
        kill(-process_, SIGTERM);
        if (!HasEnded(kTimeToEnd)) {
            kill(-process_, SIGKILL);
            HasEnded(std::chrono::hours(1));
        }
    }
}

bool HeldCommand::HasEnded(std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    int status = 0;
    pid_t ended = 0;
    while (process_ != 0 && (ended = waitpid(process_, &status, WNOHANG)) == 0) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    if (std::exchange(process_, 0) != 0) {
        // A process that ignores SIGCHLD is not told the status; it must not pass for success.
        status_ = ended < 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return true;
}

std::string HeldCommand::Account(std::chrono::milliseconds time)
{
    std::string text = HasEnded(time) ? "; it ended with status " + std::to_string(status_) : "";
    text += status_ < 0 ? ", which is unknown where SIGCHLD is ignored\n" : "\n";
    const std::size_t begin = text.size();
    std::array<char, 4096> part{};
    ssize_t got = 0;
    while ((got = pread(errors_, part.data(), part.size(),
                        static_cast<off_t>(text.size() - begin))) > 0) {
        text.append(part.data(), static_cast<std::size_t>(got));
    }
    return text;
}

constexpr char kReplyTimeout[] = "--reply-timeout";

// The option's value is the next word, or follows a "=".
std::string ReplyTimeout(const Words& options)
{
    const std::string assigned = std::string(kReplyTimeout) + "=";
    for (auto option = options.begin(); option != options.end(); ++option) {
        if (*option == kReplyTimeout && option + 1 != options.end()) {
            return option[1];
        }
        if (option->rfind(assigned, 0) == 0) {
            return option->substr(assigned.size());
        }
    }
    return "";
}

// The private bus of all sets of this process. It ends with the process, as the client's connection
// does.
class Bus
{
public:
    explicit Bus(std::string replyTimeout) : replyTimeout_(std::move(replyTimeout))
    {
        const std::string limit = replyTimeout_.empty()
                                      ? ""
                                      : "<limit name='reply_timeout'>" + replyTimeout_ + "</limit>";
        g_autoptr(GError) error = nullptr;
        char* made = nullptr;
        const int file = g_file_open_tmp("fa-bus-XXXXXX", &made, &error);
        const std::unique_ptr<char, void (*)(char*)> path(made, [](char* name) {
            unlink(name);
            g_free(name);
        });
        close(file);
        // Of an abstract socket nothing is left, however we end.
        g_autofree char* text = g_strdup_printf(
            "<busconfig><type>session</type><listen>unix:abstract=%s-%d</listen>"
            "<policy context='default'><allow send_destination='*'/><allow receive_sender='*'/>"
            "<allow own='*'/></policy>%s</busconfig>",
            made, getpid(), limit.c_str());
        if (file < 0 || !g_file_set_contents(made, text, -1, &error)) {
            throw SetFailure(std::string("the bus's configuration: ") + error->message);
        }
        daemon_.emplace(Words{"dbus-run-session", std::string("--config-file=") + made},
                        Variables{"DBUS_SESSION_BUS_ADDRESS"});
        address_ = daemon_->Values()[0];
    }

    // Gives the address for a set with the options, which has to be content with the bus.
    const std::string& Address(const Words& options) const
    {
        if (ReplyTimeout(options) != replyTimeout_) {
            throw SetFailure(std::string("the sets of a process share a bus: give them the same ") +
                             kReplyTimeout);
        }
        return address_;
    }

private:
    std::string replyTimeout_;
    std::string address_;
    std::optional<HeldCommand> daemon_;
};

bool running = false;  // a set of this process

Words RunCommand(const Words& options)
{
    if (running) {
        throw SetFailure("this process has a set already; the next one can begin when that ends");
    }
    static const Bus bus(ReplyTimeout(options));
    const std::string& address = bus.Address(options);
    g_setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), TRUE);
    const char* named = g_getenv("FA_SET_SIMULATOR");
    Words words{named != nullptr ? named : "fa-set-simulator", "run", "--quiet", "--bus", address};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

}  // namespace

std::chrono::milliseconds SimulatedSet::deadline{kPatience};

class SimulatedSet::Process
{
public:
    explicit Process(const Words& options) : set_(RunCommand(options), kSetVariables)
    {
        paths_ = set_.Values();
        for (std::size_t i = 0; i < paths_.size(); ++i) {
            g_setenv(kSetVariables.begin()[i], paths_[i].c_str(), TRUE);
        }
        running = true;
    }
    ~Process()
    {
        running = false;
        for (const char* variable : kSetVariables) {
            const char* earlier = g_environ_getenv(environment_.get(), variable);
            if (earlier != nullptr) {
                g_setenv(variable, earlier, TRUE);
            } else {
                g_unsetenv(variable);
            }
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Calls the set's control interface, by the connection that the client has. A set that does not
    // answer may be about to end, for which we wait so long.
    std::shared_ptr<GVariant> Ask(const char* method, GVariant* arguments = nullptr,
                                  std::chrono::milliseconds timeToEnd = kTimeToEnd)
    {
        g_autoptr(GVariant) sunk = arguments != nullptr ? g_variant_ref_sink(arguments) : nullptr;
        g_autoptr(GError) error = nullptr;
        g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
        if (bus == nullptr) {
            throw SetFailure(std::string("the bus of the set: ") + error->message);
        }
        g_dbus_connection_set_exit_on_close(bus, FALSE);  // a set that dies fails the test
        GVariant* reply = g_dbus_connection_call_sync(
            bus, "org.kavra.tv.automation-service", "/KVFacAutoObj",
            "org.kavra.tv.automationservice.Simulator", method, sunk, nullptr,
            G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &error);
        if (reply == nullptr) {
            g_dbus_error_strip_remote_error(error);
            throw SetFailure(std::string(method) + ": " +
                             (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS)
                                  ? error->message
                                  : "the set does not answer" + set_.Account(timeToEnd)));
        }
        return {reply, g_variant_unref};
    }

    int End() { return set_.End(); }
    std::string Account() { return set_.Account(); }
    const std::string& Path(std::size_t line) const { return paths_[line]; }

private:
    const std::unique_ptr<char*, void (*)(char**)> environment_{g_get_environ(), g_strfreev};
    HeldCommand set_;
    Words paths_;
};

SimulatedSet::SimulatedSet(const Words& options) : process_(new Process(options))
{
    // A connection to another bus that has been made by now is the client's for good.
    try {
        process_->Ask("ForgetCalls", nullptr, std::chrono::milliseconds(0));
    } catch (const SetFailure& failure) {
        throw SetFailure(std::string("the set is not on this process's system bus; make the first "
                                     "set before the first use of that: ") +
                         failure.what());
    }
}

SimulatedSet::~SimulatedSet()
{
    if (process_ != nullptr && Finish() != 0 && std::uncaught_exceptions() == 0) {
        std::abort();
    }
}

int SimulatedSet::Finish()
{
    if (process_ != nullptr) {
        status_ = process_->End();
        if (status_ != 0) {
            std::fprintf(stderr, "fa::SimulatedSet: the set failed%s", process_->Account().c_str());
        }
        process_.reset();
    }
    return status_;
}

SimulatedSet::Process& SimulatedSet::Running() const
{
    if (process_ == nullptr) {
        throw SetFailure("the set is asked for something after Finish()");
    }
    return *process_;
}

SetLine SimulatedSet::OpenLine(const std::string& name) const
{
    const auto* const line = std::find(kLines.begin(), kLines.end(), name);
    if (line == kLines.end()) {
        throw SetFailure("OpenLine: a line is uart, ss, rjp or ep, not \"" + name + "\"");
    }
    return {name, Running().Path(static_cast<std::size_t>(line - kLines.begin()))};
}

void SimulatedSet::WritePacket(const std::string& line, const Bytes& packet)
{
    Running().Ask("WritePacket",
                  g_variant_new("(s@ay)", line.c_str(),
                                g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, packet.data(),
                                                          packet.size(), sizeof(packet[0]))));
}

void SimulatedSet::AddRules(const std::string& json)
{
    Running().Ask("AddRules", g_variant_new("(s)", json.c_str()));
}

void SimulatedSet::ClearRules()
{
    Running().Ask("ClearRules");
}

std::vector<std::string> SimulatedSet::Calls(const std::string& method) const
{
    const auto reply = Running().Ask("GetCalls", g_variant_new("(s)", method.c_str()));
    g_autofree const char** lines = nullptr;
    g_variant_get(reply.get(), "(^a&s)", &lines);
    std::vector<std::string> calls;
    for (const char** line = lines; *line != nullptr; ++line) {
        calls.emplace_back(*line);
    }
    return calls;
}

std::vector<std::string> SimulatedSet::WaitForCalls(std::size_t count,
                                                    const std::string& method) const
{
    std::vector<std::string> calls;
    const bool there = Wait([&] {
        calls = Calls(method);
        return calls.size() >= count;
    });
    if (!there) {
        std::string text = "WaitForCalls: " + std::to_string(calls.size()) + " of " +
                           std::to_string(count) + " calls after " + Deadline();
        for (const std::string& call : calls) {
            text.append("\n").append(call);
        }
        throw SetFailure(text);
    }
    return calls;
}

void SimulatedSet::ForgetCalls()
{
    Running().Ask("ForgetCalls");
}

bool SimulatedSet::Wait(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        if (!g_main_context_iteration(g_main_context_get_thread_default(), FALSE)) {
            std::this_thread::sleep_for(kPause);
        }
    }
    return true;
}

namespace
{

// Reads or writes by `step` until `count` bytes are done; the result says why not all are.
std::string Move(std::size_t count, std::size_t& done, const std::function<ssize_t()>& step)
{
    std::string reason = ", no more in " + Deadline();
    const bool moved = SimulatedSet::Wait([&] {
        const ssize_t some = done < count ? step() : 0;
        done += some > 0 ? static_cast<std::size_t>(some) : 0;
        const bool hungUp = some == 0 || (some < 0 && errno != EAGAIN && errno != EINTR);
        if (hungUp) {
            reason = ", then the set closed the line";
        }
        return done == count || hungUp;
    });
    return moved && done == count
               ? ""
               : " " + std::to_string(done) + " of " + std::to_string(count) + " bytes" + reason;
}

}  // namespace

SetLine::SetLine(const std::string& name, const std::string& path)
    : name_(name), descriptor_(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    if (descriptor_ < 0) {
        throw SetFailure("line " + name + ": " + g_strerror(errno));
    }
}

SetLine::~SetLine()
{
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

SetLine::SetLine(SetLine&& other) noexcept
    : name_(std::move(other.name_)), descriptor_(std::exchange(other.descriptor_, -1))
{
}

SetLine::Bytes SetLine::Read(std::size_t count)
{
    Bytes bytes(count);
    std::size_t done = 0;
    const std::string failure =
        Move(count, done, [&] { return read(descriptor_, bytes.data() + done, count - done); });
    bytes.resize(done);
    if (!failure.empty()) {
        std::string text = "line " + name_ + ": read" + failure + ":";
        for (const unsigned char byte : bytes) {
            g_autofree char* digits = g_strdup_printf(" %02x", byte);
            text += digits;
        }
        throw SetFailure(text);
    }
    return bytes;
}

void SetLine::Write(const Bytes& bytes)
{
    std::size_t done = 0;
    const std::string failure = Move(bytes.size(), done, [&] {
        return write(descriptor_, bytes.data() + done, bytes.size() - done);
    });
    if (!failure.empty()) {
        throw SetFailure("line " + name_ + ": wrote" + failure);
    }
}

}  // namespace fa
