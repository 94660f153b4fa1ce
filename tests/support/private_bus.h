// A message bus of the test's own.
#pragma once

#include <gio/gio.h>

#include <string>

// Runs a private dbus-daemon while it lives; the library and every child process take it for the
// system bus.
class PrivateBus
{
public:
    // The bus starts the services that are described in the folder, if one is named.
    explicit PrivateBus(const char* serviceFolder = nullptr);
    ~PrivateBus();

    // A new connection to the bus, as another process would have; to be unreferenced.
    GDBusConnection* Connect() const;
    std::string Address() const { return g_test_dbus_get_bus_address(bus); }

private:
    GTestDBus* bus;
};

// Calls the bus itself. Returns its reply, which is to be unreferenced, or null where it refuses.
GVariant* CallBus(GDBusConnection* connection, const char* method, GVariant* parameters = nullptr);

// The process that has a name on the bus, or 0.
pid_t ProcessOf(GDBusConnection* connection, const char* name);

// Returns when the bus has taken all that was sent over the connection before, and the connection
// has received all that the bus sent to it. A connection that is closed, or null, awaits nothing.
void AwaitBus(GDBusConnection* connection);
