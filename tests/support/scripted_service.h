// An automation service that answers as a test scripts it.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "support/private_bus.h"

// Lives on the bus under a connection of its own, from construction on, and answers in the thread
// in which GLib reads that. Each call is noted, as "service: SendRjpData (2, [uint32 16, 255])".
class ScriptedService
{
public:
    explicit ScriptedService(const PrivateBus& theBus) : bus(theBus) { Join(); }
    ~ScriptedService() { Leave(); }

    // How `method` is answered from now on: with this reply body, in GVariant's text form and
    // whatever the method's types; with a D-Bus error of the text after a "!"; or, for "exit", by
    // leaving the bus in the middle of the call. Until then a method answers "((1,),)".
    void Answer(const std::string& method, const std::string& answer);

    // Announces data; the bus has passed the signal on when this returns.
    void Emit(const std::string& signal);
    void Leave();
    // Joins the bus again, under another unique name, and owns the service's name on return.
    void Join();
    std::string UniqueName() const { return g_dbus_connection_get_unique_name(connection); }

private:
    static GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer self);

    const PrivateBus& bus;
    GDBusConnection* connection = nullptr;
    std::mutex mutex;
    std::map<std::string, std::string> answers;
};
