// A client of the library beside a service that answers as the test says.
#pragma once

#include <fa_api/automation_api.h>

#include "support/observed_library.h"
#include "support/platform_log.h"
#include "support/private_bus.h"
#include "support/scripted_service.h"

inline void HideBus()
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
}

// Lets the library make its connection.
inline void Connect()
{
    automation_execute_command(1, 1);
    TakeTrace();
}

// Notes what the function returns, and what it prints, which is nothing.
template <typename Function>
void Call(Function function)
{
    testing::internal::CaptureStdout();
    const int result = function();
    Note(testing::internal::GetCapturedStdout() + "= " + std::to_string(result));
}

// Returns when the library has received all that was sent to it before; nothing is handled yet.
inline void AwaitLibrary()
{
    g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    AwaitBus(connection);
}

// Lets the library handle all that was sent to it before.
inline void Iterate()
{
    AwaitLibrary();
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

class ClientTest : public testing::Test
{
protected:
    ClientTest()
    {
        // What GLib complains about, without the place in its sources.
        const auto note = [](const char*, GLogLevelFlags level, const char* message, gpointer) {
            const char* text = std::strstr(message, "instance '");
            if ((level & G_LOG_LEVEL_MASK) <= G_LOG_LEVEL_WARNING) {
                Note(Format("GLib: %s", text != nullptr ? text : message));
            }
        };
        g_log_set_default_handler(note, nullptr);
    }
    ~ClientTest() override { WatchLog({}); }

    void ShowBus() const { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1); }

    // Another process is the service now, and the library has been told.
    void Restart()
    {
        service.Join();
        AwaitLibrary();
    }

    PrivateBus bus;
    ScriptedService service{bus};
};
