// The simulated set, as a program.
#include <glib-unix.h>

#include <clocale>
#include <csignal>
#include <cstdlib>

#include "command.h"
#include "service.h"
#include "signals.h"

namespace
{

constexpr int kUsage = 2;

gboolean Quit(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

void Serve(const fa::Options& options)
{
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGINT, Quit, loop);
    g_unix_signal_add(SIGTERM, Quit, loop);
    fa::OnHangUp(Quit, loop);
    std::string failure;
    const fa::Service service(options, [&](const std::string& reason) {
        failure = reason;
        g_main_loop_quit(loop);
    });
    g_main_loop_run(loop);
    if (!failure.empty()) {
        throw fa::Failure(failure);
    }
    service.CheckRecord();
}

// Changes the set that runs on the bus.
void ChangeFaults(const std::vector<std::string>& words)
{
    const bool clear = words == std::vector<std::string>{"clear"};
    const fa::FaultRequest request = clear ? fa::FaultRequest{} : fa::ReadFault(words);
    const fa::Fault fault = clear ? fa::Fault{} : fa::CheckFault(request);
    GError* error = nullptr;
    g_autoptr(SimulatorControl) set = simulator_control_proxy_new_for_bus_sync(
        G_BUS_TYPE_SYSTEM, G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, "org.kavra.tv.automation-service",
        "/KVFacAutoObj", nullptr, &error);
    if (error == nullptr) {
        g_dbus_connection_set_exit_on_close(g_dbus_proxy_get_connection(G_DBUS_PROXY(set)), FALSE);
        g_autofree char* owner = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(set));
        if (owner == nullptr) {
            throw fa::Failure("fault: no set is on this bus");
        }
        if (clear) {
            simulator_control_call_clear_faults_sync(set, nullptr, &error);
        } else {
            simulator_control_call_set_fault_sync(set, request.target.c_str(), fault.name,
                                                  fault.value, fault.times, nullptr, &error);
        }
    }
    if (error != nullptr) {
        g_dbus_error_strip_remote_error(error);
        if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS)) {
            const std::string reason = error->message;
            g_error_free(error);
            throw fa::UsageError(reason);
        }
        fa::ThrowError("fault", error);
    }
}

int Run(const fa::Options& options)
{
    switch (options.mode) {
        case fa::Mode::kRun:
            return fa::RunCommand(options);
        case fa::Mode::kFault:
            ChangeFaults(options.words);
            return EXIT_SUCCESS;
        default:
            Serve(options);
            return EXIT_SUCCESS;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    // A reader of our output that has gone is no reason to leave links behind.
    std::signal(SIGPIPE, SIG_IGN);
    std::setlocale(LC_CTYPE, "");  // the character set that --help is printed in
    try {
        return Run(fa::ReadOptions(argc, argv));
    } catch (const fa::UsageError& error) {
        fa::Complain(std::string(error.what()) + " (--help tells more)");
        return kUsage;
    } catch (const std::exception& error) {
        fa::Complain(error.what());
        return EXIT_FAILURE;
    }
}
