#include "support/client_test.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <regex>

const std::string kConnected = "I _automation_init_service: Proxy created: ADDRESS";
const std::string kNoConnection =
    "E _automation_init_service: ERR: Failed to create proxy: "
    "Could not connect: No such file or directory";

namespace
{

std::string WithoutAddresses(const std::string& line)
{
    static const std::regex address("0x[0-9a-f]{6,}");
    return std::regex_replace(line, address, "ADDRESS");
}

void RecordWarning(const char* /*domain*/, GLogLevelFlags level, const char* message,
                   gpointer warnings)
{
    if ((level & G_LOG_LEVEL_MASK) <= G_LOG_LEVEL_WARNING) {
        static_cast<Texts*>(warnings)->push_back(WithoutAddresses(message));
    }
}

}  // namespace

Texts By(const std::string& function, const Texts& messages)
{
    Texts lines;
    for (const std::string& message : messages) {
        if (!message.empty()) {
            lines.push_back(message.substr(0, 2) + function + ":" + message.substr(1));
        }
    }
    return lines;
}

std::string ByteList(const std::string& bytes)
{
    std::string list;
    for (const char byte : bytes) {
        list += (list.empty() ? "[" : ", ") + std::to_string(static_cast<unsigned char>(byte));
    }
    return list + "]";
}

Texts operator+(Texts first, const Texts& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

ClientTest::ClientTest()
{
    g_log_set_default_handler(RecordWarning, &warnings);
}

ClientTest::~ClientTest()
{
    EXPECT_EQ(warnings, Texts());
    g_log_set_default_handler(g_log_default_handler, nullptr);
}

void ClientTest::Expect(const std::function<int()>& call, int result, const Texts& lines,
                        const Texts& calls)
{
    EXPECT_EQ(call(), result);
    ExpectLines(lines);
    EXPECT_EQ(service.TakeCalls(), calls);
}

void ClientTest::ExpectLines(const Texts& lines)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    Texts logged;
    while (true) {
        for (const std::string& line : log.Take()) {
            std::sscanf(line.c_str(), "I _automation_init_service: Proxy created: %p", &proxy);
            logged.push_back(WithoutAddresses(line));
        }
        if (logged.size() >= lines.size() || std::chrono::steady_clock::now() > deadline) {
            break;
        }
        if (!g_main_context_iteration(nullptr, FALSE)) {
            g_usleep(500);
        }
    }
    EXPECT_EQ(logged, lines);
}

void ClientTest::ExpectWarnings(const Texts& expected)
{
    EXPECT_EQ(warnings, expected);
    warnings.clear();
}

void ClientTest::HideBus()
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
}

GDBusConnection* ClientTest::LibraryConnection()
{
    // GIO keeps one connection to the system bus for the whole process.
    GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_object_unref(connection);
    return connection;
}

void ClientTest::Settle(GDBusConnection* connection)
{
    g_autoptr(GVariant) id =
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus",
                                    "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                                    nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
}
