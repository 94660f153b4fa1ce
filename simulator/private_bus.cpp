#include "private_bus.h"

#include <gio/gio.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "console.h"

namespace fa
{

namespace
{

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
    "</busconfig>\n";

}  // namespace

PrivateBus::PrivateBus(const std::string& folder)
{
    const std::string configuration = folder + "/bus.conf";
    g_autofree char* path = g_dbus_address_escape_value(folder.c_str());
    g_autofree char* text = g_markup_printf_escaped(kConfiguration, path);
    GError* error = nullptr;
    if (!g_file_set_contents(configuration.c_str(), text, -1, &error)) {
        ThrowError("bus", error);
    }
    const std::string option = "--config-file=" + configuration;
    const char* arguments[] = {"dbus-daemon",       "--nofork",     "--nopidfile",
                               "--print-address=1", option.c_str(), nullptr};
    // Ctrl-C at a terminal is for the command; the bus ends when all is done, or we are killed.
    const auto setUp = [](gpointer) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    };
    int output = -1;
    constexpr auto flags = static_cast<GSpawnFlags>(
        G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDERR_TO_DEV_NULL);
    if (!g_spawn_async_with_pipes(nullptr, const_cast<char**>(arguments), nullptr, flags, setUp,
                                  nullptr, &daemon, nullptr, &output, nullptr, &error)) {
        ThrowError("bus", error);
    }
    // The address comes when the bus accepts connections.
    char byte = 0;
    while (read(output, &byte, 1) == 1 && byte != '\n') {
        address += byte;
    }
    close(output);
    if (address.empty()) {
        waitpid(daemon, nullptr, 0);
        throw Failure("bus: dbus-daemon does not start");
    }
}

PrivateBus::~PrivateBus()
{
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
}

}  // namespace fa
