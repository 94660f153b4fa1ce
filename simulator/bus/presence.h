// The set on the message bus: its connection, its object and its name.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fa::set
{

// The address of the bus that DBUS_SYSTEM_BUS_ADDRESS names. Throws Failure.
std::string BusAddress();

// A connection to it that never ends the program. Throws Failure.
using Connection = std::shared_ptr<GDBusConnection>;
Connection Connect();

class Presence
{
public:
    using Invocation = std::shared_ptr<GDBusMethodInvocation>;
    struct Interface {
        GDBusInterfaceInfo* info;
        std::function<void(const Invocation& invocation)> onCall;  // which it answers
    };
    struct Owner {
        std::function<void()> onConnected;  // not yet to be seen; a Failure is a loss
        std::function<void()> onJoined;     // the name is ours
        std::function<void(const std::string& reason)> onLost;  // for good
    };

    Presence(std::vector<Interface> interfaces, Owner owner);
    ~Presence();
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;

    // Begins to connect to the bus that DBUS_SYSTEM_BUS_ADDRESS names, and to own the name.
    void Join();

    // Sends what is waiting, and is gone.
    void Leave();

    bool IsJoined() const { return joined_; }

    // Sends a signal with one text; nothing while the set is not on the bus.
    void Emit(GDBusInterfaceInfo* interface, const char* signal, const std::string& text) const;

private:
    void OnConnected(GDBusConnection* connection);
    void Lose(const std::string& reason);

    const std::vector<Interface> interfaces_;
    const Owner owner_;
    GDBusConnection* connection_ = nullptr;
    GCancellable* joining_ = nullptr;
    bool joined_ = false;
};

}  // namespace fa::set
