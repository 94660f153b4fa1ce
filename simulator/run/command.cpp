#include "run/command.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "run/private_bus.h"
#include "sample_profile.h"
#include "set/profile.h"
#include "support/main_loop.h"

namespace fa::set
{

namespace
{

constexpr guint kGraceMs = 5000;  // between a request to end and the end

// A folder that nobody else can look into, gone at the end with all that is in it.
class PrivateFolder
{
public:
    PrivateFolder()
    {
        g_autoptr(GError) error = nullptr;
        g_autofree char* made = g_dir_make_tmp("fa-set-XXXXXX", &error);
        if (made == nullptr) {
            throw Failure(std::string("temporary folder: ") + error->message);
        }
        path_ = made;
    }
    ~PrivateFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::string Path(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Gives the set what the user has not: a profile, logs, a USB storage, and links to its lines. The
// command finds them in its environment.
void Furnish(const PrivateFolder& folder, StateOptions& set)
{
    const std::string profile = folder.Path("profile.ini");
    if (!set.profile.empty()) {
        CheckProfile(set.profile);
    }
    WriteFile(profile, set.profile.empty() ? kSampleProfile : ReadFile("profile", set.profile));
    set.profile = profile;
    setenv("FA_PLATFORM_PROFILE", profile.c_str(), 1);
    if (set.logFolder.empty()) {
        set.logFolder = folder.Path("logs");
        std::filesystem::create_directory(set.logFolder);
        WriteFile(folder.Path("logs/set.log"), "a log of the set\n");
    }
    if (set.usbFolder.empty()) {
        set.usbFolder = folder.Path("usb");
        std::filesystem::create_directory(set.usbFolder);
    }
    for (Line line = 0; line < std::size(kLines); ++line) {
        std::string& link = set.links[line];
        link = link.empty() ? folder.Path(kLines[line].name)
                            : std::filesystem::absolute(link).string();
        g_autofree char* upper = g_ascii_strup(kLines[line].name, -1);
        setenv((std::string("FA_SET_") + upper).c_str(), link.c_str(), 1);
    }
}

// Says to the simulated platform of the command where to log, and what, where that is asked for.
void DirectLog(const RunOptions& run)
{
    if (!run.logPriority.empty()) {
        setenv("FA_PLATFORM_LOG_PRIORITY", run.logPriority.c_str(), 1);
    }
    if (run.log.empty()) {
        return;
    }
    // It stays open for as long as we run: a FIFO's reader would take its closing for the end.
    if (open(run.log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC | O_NONBLOCK,
             0666) < 0) {
        throw Failure("log " + run.log + ": " +
                      (errno == ENXIO ? "nobody reads from it" : g_strerror(errno)));
    }
    setenv("FA_PLATFORM_LOG", std::filesystem::absolute(run.log).c_str(), 1);
}

bool IsIgnored(int signal)
{
    struct sigaction action {
    };
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// The command, from its start to its end.
class Command
{
public:
    explicit Command(MainLoop& loop) : loop_(loop) {}
    ~Command()
    {
        if (process_ != nullptr) {
            g_object_unref(process_);
        }
    }
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    void Start(const RunOptions& run)
    {
        if (status_) {
            return;
        }
        std::vector<const char*> words;
        for (const std::string& word : run.command) {
            words.push_back(word.c_str());
        }
        words.push_back(nullptr);
        constexpr auto kFlags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_INHERIT |
                                                              G_SUBPROCESS_FLAGS_INHERIT_FDS);
        g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(kFlags);
        // GLib gives the command default signals, also where nohup had one ignored.
        static const bool hangUpIgnored = IsIgnored(SIGHUP);
        g_autoptr(GError) error = nullptr;
        if (!hangUpIgnored) {
            process_ = g_subprocess_launcher_spawnv(launcher, words.data(), nullptr);
        }
        if (process_ == nullptr) {
            // With a function to set up, which takes longer, GLib also tells why it failed.
            const auto setUp = [](gpointer) {
                std::signal(SIGHUP, hangUpIgnored ? SIG_IGN : SIG_DFL);
            };
            g_subprocess_launcher_set_child_setup(launcher, setUp, nullptr, nullptr);
            process_ = g_subprocess_launcher_spawnv(launcher, words.data(), &error);
        }
        if (process_ == nullptr) {
            Complain(error->message);
            loop_.Quit(g_error_matches(error, G_SPAWN_ERROR, G_SPAWN_ERROR_NOENT) ? kNotFound
                                                                                  : kNotExecutable);
            return;
        }
        const auto onExit = [](GObject*, GAsyncResult* result, gpointer self) {
            static_cast<Command*>(self)->OnExit(result);
        };
        g_subprocess_wait_async(process_, nullptr, onExit, this);
        if (run.timeoutMs > 0) {
            timeout_.StartTimer(run.timeoutMs, [this, &run] {
                Complain("the command is ended after " + std::to_string(run.timeoutMs) + " ms");
                End(kTimedOut);
            });
        }
    }

    // Ctrl-C at a terminal has reached the command as well; what is for us alone is passed on.
    void OnSignal(const Signal& signal)
    {
        if (process_ == nullptr) {
            End(kSignalled + signal.number);
        } else if (signal.number != SIGINT || !signal.fromTerminal) {
            g_subprocess_send_signal(process_, signal.number);
        }
    }

    // Ends the command, and the run with the status; the first one holds.
    void End(int status)
    {
        if (!status_) {
            status_ = status;
            if (process_ == nullptr) {
                loop_.Quit(status);
                return;
            }
            g_subprocess_send_signal(process_, SIGTERM);
            grace_.StartTimer(kGraceMs, [this] { g_subprocess_force_exit(process_); });
        }
    }

private:
    void OnExit(GAsyncResult* result)
    {
        g_subprocess_wait_finish(process_, result, nullptr);
        timeout_.Stop();
        grace_.Stop();
        const int signal = g_subprocess_get_if_signaled(process_) != FALSE
                               ? g_subprocess_get_term_sig(process_)
                               : 0;
        // A request to end is no news for the one that made it.
        if (!status_ && signal != 0 && signal != SIGINT && signal != SIGTERM && signal != SIGHUP) {
            Complain(std::string("the command was ended by a signal: ") + g_strsignal(signal));
        }
        loop_.Quit(status_ ? *status_
                   : g_subprocess_get_if_exited(process_) != FALSE
                       ? g_subprocess_get_exit_status(process_)
                       : kSignalled + signal);
    }

    MainLoop& loop_;
    GSubprocess* process_ = nullptr;
    std::optional<int> status_;
    EventSource timeout_;
    EventSource grace_;
};

}  // namespace

int RunCommand(const RunOptions& run, ServiceOptions options)
{
    const PrivateFolder folder;
    std::optional<PrivateBus> bus;
    if (run.bus.empty()) {
        bus.emplace(folder.Path(), run.replyTimeoutMs);
    }
    // The bus starts meanwhile.
    Furnish(folder, options.set);
    DirectLog(run);
    if (run.replyTimeoutMs > 0) {
        options.replyTimeoutMs = run.replyTimeoutMs;
    }
    std::optional<Command> command;
    MainLoop loop([&](const Signal& signal) { command->OnSignal(signal); });
    command.emplace(loop);
    Service service(options,
                    {[&] { command->Start(run); }, [&](int status) { command->End(status); }});

    const std::string address = bus ? bus->WaitForAddress() : run.bus;
    if (address.empty()) {
        return kSignalled + TakeSignal()->number;
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    Say("DBUS_SYSTEM_BUS_ADDRESS=%s", address.c_str());
    service.Join();
    const int status = loop.Run();
    const int own = service.Finish();
    if (bus) {
        bus->End();
    }
    return own != EXIT_SUCCESS ? own : status;
}

}  // namespace fa::set
