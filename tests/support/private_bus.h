// A message bus of the test's own.
#pragma once

#include <gio/gio.h>

#include <string>

// Runs a private dbus-daemon while it lives; the library and every child process take it for the
// system bus.
class PrivateBus
{
public:
    PrivateBus();
    ~PrivateBus();

    // A new connection to the bus, as another process would have; to be unreferenced.
    GDBusConnection* Connect() const;
    std::string Address() const;
    void Stop();

private:
    GTestDBus* bus;
};
