#include "command.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "private_bus.h"
#include "profile_state.h"
#include "sample_profile.h"
#include "service.h"
#include "signals.h"

namespace fa
{

namespace
{

constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

// A folder that nobody else can look into, gone at the end with all that is in it.
class PrivateFolder
{
public:
    PrivateFolder()
    {
        GError* error = nullptr;
        g_autofree char* made = g_dir_make_tmp("fa-set-XXXXXX", &error);
        if (made == nullptr) {
            ThrowError("temporary folder", error);
        }
        path = made;
    }
    ~PrivateFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::string Path(const std::string& name) const { return path + "/" + name; }
    const std::string& Path() const { return path; }

private:
    std::string path;
};

// Gives the set logs and a USB storage where the user has none.
void MakeFolders(const PrivateFolder& folder, Options& options)
{
    if (options.logFolder.empty()) {
        options.logFolder = folder.Path("logs");
        std::filesystem::create_directory(options.logFolder);
        const std::string log = folder.Path("logs/set.log");
        GError* error = nullptr;
        if (!g_file_set_contents(log.c_str(), "a log of the set\n", -1, &error)) {
            ThrowError("logs", error);
        }
    }
    if (options.usbFolder.empty()) {
        options.usbFolder = folder.Path("usb");
        std::filesystem::create_directory(options.usbFolder);
    }
}

// The command while it runs.
struct Run {
    GMainLoop* loop = nullptr;
    GPid command = 0;
    int status = 0;
    std::string failure;
};

void CopyProfile(const std::string& from, const std::string& to)
{
    g_autofree char* text = nullptr;
    GError* error = nullptr;
    if (!from.empty() && !g_file_get_contents(from.c_str(), &text, nullptr, &error)) {
        ThrowError("profile", error);
    }
    if (!g_file_set_contents(to.c_str(), text != nullptr ? text : kSampleProfile, -1, &error)) {
        ThrowError("profile", error);
    }
}

// True where Ctrl-C at the terminal reaches the command without us.
bool ShareTerminal()
{
    const int terminal = open("/dev/tty", O_RDONLY | O_NOCTTY | O_CLOEXEC);
    const bool share = terminal >= 0 && tcgetpgrp(terminal) == getpgrp();
    if (terminal >= 0) {
        close(terminal);
    }
    return share;
}

void SendSignal(const Run& run, int number)
{
    if (run.command != 0) {
        kill(run.command, number);
    }
}

template <int number>
gboolean PassSignalOn(gpointer run)
{
    if (number != SIGINT || !ShareTerminal()) {
        SendSignal(*static_cast<Run*>(run), number);
    }
    return G_SOURCE_CONTINUE;
}

void OnExit(GPid /*command*/, gint waitStatus, gpointer data)
{
    auto* run = static_cast<Run*>(data);
    run->status =
        WIFSIGNALED(waitStatus) ? kSignalled + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
    run->command = 0;
    g_main_loop_quit(run->loop);
}

// Returns false, with the status set, where the command cannot be started.
bool Start(const std::vector<std::string>& words, Run& run)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    constexpr auto flags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_CHILD_INHERITS_STDIN);
    g_autoptr(GError) error = nullptr;
    if (g_spawn_async(nullptr, arguments.data(), nullptr, flags, nullptr, nullptr, &run.command,
                      &error)) {
        g_child_watch_add(run.command, OnExit, &run);
        return true;
    }
    Complain(error->message);
    run.status =
        g_error_matches(error, G_SPAWN_ERROR, G_SPAWN_ERROR_NOENT) ? kNotFound : kNotExecutable;
    return false;
}

}  // namespace

int RunCommand(Options options)
{
    // A signal waits until the command can have it: there is something to be left behind.
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    Run run{};
    run.loop = loop;
    g_unix_signal_add(SIGINT, PassSignalOn<SIGINT>, &run);
    g_unix_signal_add(SIGTERM, PassSignalOn<SIGTERM>, &run);
    OnHangUp(PassSignalOn<SIGHUP>, &run);
    const PrivateFolder folder;
    const std::string profile = folder.Path("profile.ini");
    if (!options.profile.empty()) {
        ReadProfile(options.profile);
    }
    CopyProfile(options.profile, profile);
    options.profile = profile;
    MakeFolders(folder, options);
    setenv("FA_PLATFORM_PROFILE", profile.c_str(), 1);
    for (const char* line : kLines) {
        std::string& link = options.links[line];
        link = link.empty() ? folder.Path(line) : std::filesystem::absolute(link).string();
        g_autofree char* upper = g_ascii_strup(line, -1);
        setenv((std::string("FA_SET_") + upper).c_str(), link.c_str(), 1);
    }
    const PrivateBus bus(folder.Path());
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    Say("DBUS_SYSTEM_BUS_ADDRESS=%s", bus.Address().c_str());

    const Service service(options, [&run](const std::string& reason) {
        run.failure = reason;
        SendSignal(run, SIGTERM);
    });
    if (Start(options.words, run)) {
        g_main_loop_run(loop);
    }
    if (!run.failure.empty()) {
        throw Failure(run.failure);
    }
    service.CheckRecord();
    return run.status;
}

}  // namespace fa
