// A message bus of the test's own.
#pragma once

#include <gio/gio.h>

#include <csignal>
#include <cstdlib>
#include <string>

// Calls the bus itself. Returns its reply, which is to be unreferenced, or null where it refuses.
inline GVariant* CallBus(GDBusConnection* connection, const char* method,
                         GVariant* parameters = nullptr)
{
    return g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                       "org.freedesktop.DBus", method, parameters, nullptr,
                                       G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
}

// The process that has a name on the bus, or 0.
inline pid_t ProcessOf(GDBusConnection* connection, const char* name)
{
    guint32 process = 0;
    g_autoptr(GVariant) reply =
        CallBus(connection, "GetConnectionUnixProcessID", g_variant_new("(s)", name));
    if (reply != nullptr) {
        g_variant_get(reply, "(u)", &process);
    }
    return static_cast<pid_t>(process);
}

// Returns when the bus has taken all that was sent over the connection before, and the connection
// has received all that the bus sent to it. A connection that is closed, or null, awaits nothing.
inline void AwaitBus(GDBusConnection* connection)
{
    if (connection != nullptr) {
        [[maybe_unused]] g_autoptr(GVariant) id = CallBus(connection, "GetId");
    }
}

// Runs a private dbus-daemon while it lives; the library and every child process take it for the
// system bus.
class PrivateBus
{
public:
    // The bus starts the services that are described in the folder, if one is named.
    explicit PrivateBus(const char* serviceFolder = nullptr)
    {
        if (serviceFolder != nullptr) {
            g_test_dbus_add_service_dir(bus, serviceFolder);
        }
        g_test_dbus_up(bus);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", Address().c_str(), 1);
    }
    ~PrivateBus()
    {
        // g_test_dbus_stop alone tells GLib not to mind the loss, which is for the library to do.
        g_autoptr(GDBusConnection) connection = Connect();
        kill(ProcessOf(connection, "org.freedesktop.DBus"), SIGTERM);
        while (g_dbus_connection_is_closed(connection) == FALSE) {
            g_main_context_iteration(nullptr, FALSE);
        }
        g_test_dbus_stop(bus);
        g_object_unref(bus);
    }

    // A new connection to the bus, as another process would have; to be unreferenced.
    GDBusConnection* Connect() const
    {
        constexpr auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        return g_dbus_connection_new_for_address_sync(Address().c_str(), flags, nullptr, nullptr,
                                                      nullptr);
    }

    std::string Address() const { return g_test_dbus_get_bus_address(bus); }

private:
    GTestDBus* bus = g_test_dbus_new(G_TEST_DBUS_NONE);
};
