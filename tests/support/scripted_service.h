// An automation service that answers as a test scripts it.
#pragma once

#include "support/private_bus.h"
#include "support/trace.h"

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
    void Answer(const std::string& method, const std::string& answer)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        answers[method] = answer;
    }

    // Announces data, to everybody or to one connection; the bus has passed the signal on when this
    // returns.
    void Emit(const std::string& signal, const char* receiver = nullptr)
    {
        g_dbus_connection_emit_signal(connection, receiver, kPath, kInterface, signal.c_str(),
                                      g_variant_new("(s)", "for people"), nullptr);
        AwaitBus(connection);
    }

    // Joins the bus again, under another unique name. On return it owns the service's name, or is
    // the next to own it where another has it.
    void Join()
    {
        Leave();
        connection = bus.Connect();
        g_dbus_connection_add_filter(connection, OnMessage, this, nullptr);
        [[maybe_unused]] g_autoptr(GVariant) reply = CallBus(
            connection, "RequestName", g_variant_new("(su)", "org.kavra.tv.automation-service", 0));
    }

    std::string UniqueName() const { return g_dbus_connection_get_unique_name(connection); }

private:
    static constexpr char kPath[] = "/KVFacAutoObj";
    static constexpr char kInterface[] = "org.kavra.tv.automationservice";

    void Leave()
    {
        if (connection != nullptr) {
            g_dbus_connection_close_sync(connection, nullptr, nullptr);
            g_clear_object(&connection);
            // What the connection's thread did is seen from here on, which ThreadSanitizer knows of
            // our mutex only.
            const std::lock_guard<std::mutex> lock(mutex);
        }
    }

    static GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message,
                                   gboolean incoming, gpointer self)
    {
        if (incoming == FALSE ||
            g_strcmp0(g_dbus_message_get_interface(message), kInterface) != 0 ||
            g_strcmp0(g_dbus_message_get_path(message), kPath) != 0) {
            return message;
        }
        const std::string method = g_dbus_message_get_member(message);
        GVariant* body = g_dbus_message_get_body(message);
        g_autofree char* arguments = body != nullptr ? g_variant_print(body, TRUE) : g_strdup("()");
        Note("service: " + method + " " + arguments);
        auto* service = static_cast<ScriptedService*>(self);
        std::unique_lock<std::mutex> lock(service->mutex);
        const std::string answer = service->answers.emplace(method, "((1,),)").first->second;
        lock.unlock();
        if (answer == "exit") {
            g_dbus_connection_close(connection, nullptr, nullptr, nullptr);
        } else {
            const bool refuses = answer[0] == '!';
            const char* text = answer.c_str();
            g_autoptr(GDBusMessage) reply =
                refuses ? g_dbus_message_new_method_error_literal(message, "test.Refused", text + 1)
                        : g_dbus_message_new_method_reply(message);
            if (!refuses) {
                g_autoptr(GVariant) given =
                    g_variant_parse(nullptr, text, nullptr, nullptr, nullptr);
                g_dbus_message_set_body(reply, given);
            }
            g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                           nullptr, nullptr);
        }
        g_object_unref(message);
        return nullptr;
    }

    const PrivateBus& bus;
    GDBusConnection* connection = nullptr;
    std::mutex mutex;
    std::map<std::string, std::string> answers;
};
