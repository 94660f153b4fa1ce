#include "run/private_bus.h"

#include <gio/gunixinputstream.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support/console.h"
#include "support/json_lines.h"
#include "support/signals.h"

namespace fa::set
{

namespace
{

// The bus is one user's alone: its limits are those of no test.
constexpr char kConfiguration[] =
    "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
    "<busconfig>\n"
    "  <type>session</type>\n"
    "  <listen>unix:path=%s/bus</listen>\n"
    "  <policy context=\"default\">\n"
    "    <allow send_destination=\"*\"/>\n"
    "    <allow receive_sender=\"*\"/>\n"
    "    <allow own=\"*\"/>\n"
    "  </policy>\n"
    "  <limit name=\"max_completed_connections\">100000</limit>\n"
    "  <limit name=\"max_incomplete_connections\">10000</limit>\n"
    "  <limit name=\"max_connections_per_user\">100000</limit>\n"
    "  <limit name=\"max_match_rules_per_connection\">50000</limit>\n"
    "  <limit name=\"max_replies_per_connection\">50000</limit>\n"
    "%s"
    "</busconfig>\n";

}  // namespace

PrivateBus::PrivateBus(const std::string& folder, unsigned int replyTimeoutMs)
    : complaints_(folder + "/bus.err")
{
    const std::string configuration = folder + "/bus.conf";
    const std::string limit =
        replyTimeoutMs == 0
            ? ""
            : "  <limit name=\"reply_timeout\">" + std::to_string(replyTimeoutMs) + "</limit>\n";
    g_autofree char* escaped = g_dbus_address_escape_value(folder.c_str());
    g_autofree char* path = g_markup_escape_text(escaped, -1);
    g_autofree char* text = g_strdup_printf(kConfiguration, path, limit.c_str());
    WriteFile(configuration, text);
    const std::string option = "--config-file=" + configuration;
    const char* const arguments[] = {"dbus-daemon",       "--nofork",     "--nopidfile",
                                     "--print-address=1", option.c_str(), nullptr};
    g_autoptr(GSubprocessLauncher) launcher =
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
    g_subprocess_launcher_set_stderr_file_path(launcher, complaints_.c_str());
    // Ctrl-C at a terminal is for the command; the bus ends when all is done, or we are killed,
    // which may have happened by now.
    static pid_t parent = getpid();
    const auto setUp = [](gpointer) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(EXIT_FAILURE);
        }
    };
    g_subprocess_launcher_set_child_setup(launcher, setUp, nullptr, nullptr);
    g_autoptr(GError) error = nullptr;
    daemon_ = g_subprocess_launcher_spawnv(launcher, arguments, &error);
    if (daemon_ == nullptr) {
        throw Failure(std::string("bus: ") + error->message);
    }
}

PrivateBus::~PrivateBus()
{
    End();
    g_subprocess_wait(daemon_, nullptr, nullptr);
    g_object_unref(daemon_);
}

void PrivateBus::End()
{
    g_subprocess_force_exit(daemon_);
}

std::string PrivateBus::WaitForAddress() const
{
    std::string address = ReadAddress();
    if (address.empty() && !SignalWaits()) {
        const std::string reason = ReadFile("bus", complaints_);
        throw Failure("bus: dbus-daemon does not start" +
                      (reason.empty() ? "" : ": " + reason.substr(0, reason.find('\n'))));
    }
    return address;
}

// The address comes when the bus accepts connections; nothing where it ends, or a signal comes.
std::string PrivateBus::ReadAddress() const
{
    const int output =
        g_unix_input_stream_get_fd(G_UNIX_INPUT_STREAM(g_subprocess_get_stdout_pipe(daemon_)));
    std::string address;
    while (address.empty() || address.back() != '\n') {
        pollfd waits[] = {{output, POLLIN, 0}, {SignalDescriptor(), POLLIN, 0}};
        if ((poll(waits, 2, -1) < 0 && errno != EINTR) || SignalWaits()) {
            return "";
        }
        if (waits[0].revents != 0) {
            char text[256];
            const ssize_t count = read(output, text, sizeof(text));
            if (count <= 0) {
                return "";
            }
            address.append(text, static_cast<std::size_t>(count));
        }
    }
    address.pop_back();
    return address;
}

}  // namespace fa::set
