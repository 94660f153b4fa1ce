#include "conversation/capture.h"

#include <gio/gio.h>

#include <cstdlib>
#include <deque>
#include <map>
#include <memory>

#include "bus/presence.h"
#include "conversation/conversation.h"
#include "support/main_loop.h"

namespace fa::set
{

namespace
{

constexpr char kBusItself[] = "org.freedesktop.DBus";
constexpr gint64 kPatience = gint64{60} * G_USEC_PER_SEC;  // clients give up after 25 seconds

// Turns messages into events. A call is an event of the moment when it is made, but is only known
// with its reply: what comes in between waits.
class Listener
{
public:
    explicit Listener(Conversation& conversation) : conversation_(conversation) {}

    void OnMessage(GDBusMessage* message)
    {
        switch (g_dbus_message_get_message_type(message)) {
            case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
                OnCall(message);
                break;
            case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
            case G_DBUS_MESSAGE_TYPE_ERROR:
                OnReply(message);
                break;
            case G_DBUS_MESSAGE_TYPE_SIGNAL:
                OnSignal(message);
                break;
            default:
                break;
        }
        Flush(false);
    }

    // Writes what is complete, and calls for whose answer nobody waits any more; at the end all.
    void Flush(bool all)
    {
        while (!pending_.empty() &&
               (all || !pending_.front()->open ||
                conversation_.Now() - pending_.front()->event.time > kPatience)) {
            if (!pending_.front()->refused) {
                conversation_.AddTimed(pending_.front()->event);
            }
            pending_.pop_front();
        }
    }

private:
    struct Pending {
        Event event;
        bool open = false;     // a call whose reply is yet to come
        bool refused = false;  // a call that no service has taken
    };

    Event& Append(Event::Kind kind)
    {
        pending_.push_back(std::make_shared<Pending>());
        pending_.back()->event.kind = kind;
        pending_.back()->event.time = conversation_.Now();
        return pending_.back()->event;
    }

    void OnCall(GDBusMessage* message)
    {
        const char* const name = g_dbus_message_get_member(message);
        const GDBusMethodInfo* method = FindMethod(name);
        GVariant* body = g_dbus_message_get_body(message);
        std::string signature;
        for (GDBusArgInfo** info = method != nullptr ? method->in_args : nullptr;
             info != nullptr && *info != nullptr; ++info) {
            signature += (*info)->signature;
        }
        if (method == nullptr || signature != g_dbus_message_get_signature(message)) {
            return;  // which the service refuses by itself
        }
        Event& event = Append(Event::Kind::kCall);
        event.method = name;
        event.arguments = Own(body != nullptr ? body : g_variant_new_tuple(nullptr, 0));
        if ((g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0) {
            pending_.back()->open = true;
            calls_[{g_dbus_message_get_sender(message), g_dbus_message_get_serial(message)}] =
                pending_.back();
        }
    }

    void OnReply(GDBusMessage* message)
    {
        const char* const destination = g_dbus_message_get_destination(message);
        const auto found = calls_.find(
            {destination != nullptr ? destination : "", g_dbus_message_get_reply_serial(message)});
        if (found == calls_.end()) {
            return;
        }
        const std::shared_ptr<Pending> pending = found->second;
        calls_.erase(found);
        pending->open = false;
        GVariant* body = g_dbus_message_get_body(message);
        if (g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_ERROR) {
            OnError(*pending, message, body);
        } else if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(au(i))"))) {
            gint32 result = 0;
            GVariant* data = nullptr;
            g_variant_get(body, "(@au(i))", &data, &result);
            pending->event.data = Own(data);
            g_variant_unref(data);
            pending->event.result = result;
        } else if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("((i))"))) {
            gint32 result = 0;
            g_variant_get(body, "((i))", &result);
            pending->event.result = result;
        }
    }

    // The bus answers in the place of a service that is not there, or that does not answer.
    static void OnError(Pending& pending, GDBusMessage* message, GVariant* body)
    {
        if (g_strcmp0(g_dbus_message_get_sender(message), kBusItself) == 0) {
            pending.refused = g_strcmp0(g_dbus_message_get_error_name(message),
                                        "org.freedesktop.DBus.Error.NoReply") != 0;
            return;
        }
        const char* text = "";
        if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
            g_variant_get(body, "(&s)", &text);
        }
        pending.event.error = std::string(g_dbus_message_get_error_name(message)) + ": " + text;
    }

    void OnSignal(GDBusMessage* message)
    {
        const std::string name = g_dbus_message_get_member(message);
        GVariant* body = g_dbus_message_get_body(message);
        // Anybody can send a signal of that name, but the bus alone can send its own.
        if (name == "NameOwnerChanged" &&
            g_strcmp0(g_dbus_message_get_sender(message), kBusItself) == 0) {
            const char* owner = nullptr;
            g_variant_get(body, "(&s&s&s)", nullptr, nullptr, &owner);
            Append(*owner == '\0' ? Event::Kind::kLeft : Event::Kind::kJoined);
            return;
        }
        const std::optional<Line> line = FindLine(
            [&](const LineRow& row) { return row.signal != nullptr && name == row.signal; });
        if (line && body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(s)"))) {
            const char* text = nullptr;
            g_variant_get(body, "(&s)", &text);
            Event& event = Append(Event::Kind::kAnnouncement);
            event.line = *line;
            event.text = text;
        }
    }

    Conversation& conversation_;
    std::deque<std::shared_ptr<Pending>> pending_;
    std::map<std::pair<std::string, guint32>, std::shared_ptr<Pending>> calls_;
};

// Takes the message over to the main loop; on the connection's thread. What is sent to ourselves
// goes its way.
GDBusMessage* OnFiltered(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                         gpointer listener)
{
    const char* const own = g_dbus_connection_get_unique_name(connection);
    if (!incoming || own == nullptr ||
        g_strcmp0(g_dbus_message_get_destination(message), own) == 0) {
        return message;
    }
    struct Delivery {
        Listener* listener;
        GDBusMessage* message;
    };
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            auto* delivery = static_cast<Delivery*>(data);
            delivery->listener->OnMessage(delivery->message);
            return G_SOURCE_REMOVE;
        },
        new Delivery{static_cast<Listener*>(listener), message},
        [](gpointer data) {
            g_object_unref(static_cast<Delivery*>(data)->message);
            delete static_cast<Delivery*>(data);
        });
    return nullptr;
}

void BecomeMonitor(GDBusConnection* connection)
{
    const std::string contract =
        std::string("path='") + kObjectPath + "',interface='" + ServiceInterface()->name + "'";
    const std::string rules[] = {
        "type='method_call'," + contract,
        "type='signal'," + contract,
        "type='method_return'",
        "type='error'",
        std::string("type='signal',sender='") + kBusItself + "',member='NameOwnerChanged',arg0='" +
            kBusName + "'",
    };
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("as"));
    for (const std::string& rule : rules) {
        g_variant_builder_add(&builder, "s", rule.c_str());
    }
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        connection, kBusItself, "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
        "BecomeMonitor", g_variant_new("(asu)", &builder, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, &error);
    if (reply == nullptr) {
        g_dbus_error_strip_remote_error(error);
        throw Failure(std::string("capture: the bus lets nobody listen: ") + error->message);
    }
}

}  // namespace

int Capture(const std::string& path)
{
    Conversation conversation(path);
    Listener listener(conversation);
    const Connection connection = Connect();
    const guint filter =
        g_dbus_connection_add_filter(connection.get(), OnFiltered, &listener, nullptr);
    BecomeMonitor(connection.get());
    // Until here a signal ends the program at once, because a bus may never answer.
    CatchSignals();
    MainLoop loop([&](const Signal& /*signal*/) { loop.Quit(EXIT_SUCCESS); });
    g_signal_connect(connection.get(), "closed",
                     G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, gpointer ended) {
                         Complain("capture: the bus is gone");
                         static_cast<MainLoop*>(ended)->Quit(EXIT_FAILURE);
                     }),
                     &loop);
    conversation.Begin();
    Say("listening; SIGINT or SIGTERM ends it");
    const int status = loop.Run();
    g_dbus_connection_remove_filter(connection.get(), filter);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    listener.Flush(true);
    conversation.End();
    return conversation.Shortfall().empty() ? status : EXIT_FAILURE;
}

}  // namespace fa::set
