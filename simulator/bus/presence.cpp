#include "bus/presence.h"

#include <utility>

#include "bus/contract.h"
#include "support/console.h"

namespace fa::set
{

namespace
{

constexpr auto kConnectionFlags = static_cast<GDBusConnectionFlags>(
    G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);

std::string NoConnection(const std::string& address, const GError* error)
{
    return "bus " + address + ": " + error->message +
           " (DBUS_SYSTEM_BUS_ADDRESS names the bus; fa-set-simulator run makes one of its own)";
}

}  // namespace

std::string BusAddress()
{
    g_autoptr(GError) error = nullptr;
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (address == nullptr) {
        throw Failure(std::string("bus: ") + error->message);
    }
    return address;
}

Connection Connect()
{
    const std::string address = BusAddress();
    g_autoptr(GError) error = nullptr;
    GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
        address.c_str(), kConnectionFlags, nullptr, nullptr, &error);
    if (connection == nullptr) {
        throw Failure(NoConnection(address, error));
    }
    return Connection(connection, g_object_unref);
}

Presence::Presence(std::vector<Interface> interfaces, Owner owner)
    : interfaces_(std::move(interfaces)), owner_(std::move(owner))
{
}

Presence::~Presence()
{
    Leave();
}

void Presence::Join()
{
    Leave();
    const std::string address = BusAddress();
    joining_ = g_cancellable_new();
    const auto onReady = [](GObject*, GAsyncResult* result, gpointer self) {
        g_autoptr(GError) error = nullptr;
        g_autoptr(GDBusConnection) made = g_dbus_connection_new_for_address_finish(result, &error);
        if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
            return;  // and we may be no more
        }
        if (made == nullptr) {
            static_cast<Presence*>(self)->Lose(NoConnection(BusAddress(), error));
        } else {
            static_cast<Presence*>(self)->OnConnected(made);
        }
    };
    g_dbus_connection_new_for_address(address.c_str(), kConnectionFlags, nullptr, joining_, onReady,
                                      this);
}

void Presence::OnConnected(GDBusConnection* connection)
{
    connection_ = G_DBUS_CONNECTION(g_object_ref(connection));
    const auto onClosed = [](GDBusConnection*, gboolean, GError* error, gpointer self) {
        static_cast<Presence*>(self)->Lose(std::string("the bus is gone") +
                                           (error != nullptr ? ": " : "") +
                                           (error != nullptr ? error->message : ""));
    };
    g_signal_connect(
        connection_, "closed",
        G_CALLBACK(+static_cast<void (*)(GDBusConnection*, gboolean, GError*, gpointer)>(onClosed)),
        this);
    static const GDBusInterfaceVTable table{
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
           GDBusMethodInvocation* invocation, gpointer interface) {
            static_cast<Interface*>(interface)->onCall(Invocation(invocation, g_object_unref));
        },
        nullptr,
        nullptr,
        {}};
    g_autoptr(GError) error = nullptr;
    for (const Interface& interface : interfaces_) {
        if (g_dbus_connection_register_object(connection_, kObjectPath, interface.info, &table,
                                              const_cast<Interface*>(&interface), nullptr,
                                              &error) == 0) {
            Lose(std::string("bus: ") + error->message);
            return;
        }
    }
    try {
        owner_.onConnected();
    } catch (const Failure& failure) {
        Lose(failure.what());
        return;
    }
    const auto onNamed = [](GObject* source, GAsyncResult* result, gpointer self) {
        g_autoptr(GError) failed = nullptr;
        g_autoptr(GVariant) reply =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &failed);
        if (g_error_matches(failed, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
            return;
        }
        constexpr guint32 kPrimaryOwner = 1;
        guint32 verdict = 0;
        if (reply != nullptr) {
            g_variant_get(reply, "(u)", &verdict);
        }
        if (verdict == kPrimaryOwner) {
            static_cast<Presence*>(self)->joined_ = true;
            static_cast<Presence*>(self)->owner_.onJoined();
        } else {
            static_cast<Presence*>(self)->Lose(
                std::string("bus: ") +
                (failed != nullptr ? failed->message
                                   : std::string(kBusName) + " is taken by another process"));
        }
    };
    constexpr guint32 kDoNotQueue = 4;
    g_dbus_connection_call(connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "RequestName",
                           g_variant_new("(su)", kBusName, kDoNotQueue), G_VARIANT_TYPE("(u)"),
                           G_DBUS_CALL_FLAGS_NONE, -1, joining_, onNamed, this);
}

void Presence::Lose(const std::string& reason)
{
    Leave();
    owner_.onLost(reason);
}

void Presence::Leave()
{
    joined_ = false;
    if (joining_ != nullptr) {
        g_cancellable_cancel(joining_);
        g_clear_object(&joining_);
    }
    if (connection_ != nullptr) {
        g_signal_handlers_disconnect_by_data(connection_, this);
        g_dbus_connection_flush_sync(connection_, nullptr, nullptr);
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_clear_object(&connection_);
    }
}

void Presence::Emit(GDBusInterfaceInfo* interface, const char* signal,
                    const std::string& text) const
{
    if (joined_) {
        g_dbus_connection_emit_signal(connection_, nullptr, kObjectPath, interface->name, signal,
                                      g_variant_new("(s)", text.c_str()), nullptr);
    }
}

}  // namespace fa::set
