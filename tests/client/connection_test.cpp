// What takes threads, restarts or a look at the bus to show: who makes the connection, through
// which proxy calls go, and where callbacks arrive. Nothing here iterates the main context that the
// library's callbacks arrive in, except where it says so.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include "client/client_test.h"

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";

// Calls on so many threads at once, and returns how many of the calls failed.
int FailuresOf(int threads, int callsOfEach)
{
    std::atomic<int> waiting{threads};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers(static_cast<std::size_t>(threads));
    for (std::thread& caller : callers) {
        caller = std::thread([&] {
            for (--waiting; waiting > 0;) {
                std::this_thread::yield();
            }
            for (int i = 0; i < callsOfEach; ++i) {
                failures -= automation_copy_log_to_usb();
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    return failures;
}

// Another process is the service now.
void Restart(ScriptedService& service)
{
    service.Leave();
    service.Join();
    AwaitLibrary();
}

TEST(ConnectionTest, FirstCallsAtOnceMakeOneProxy)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    EXPECT_EQ(FailuresOf(8, 20), 0);
    std::vector<std::string> lines = Split(TakeTrace());
    EXPECT_EQ(lines.at(0) + "\n", Connected());
    lines.erase(lines.begin());
    std::sort(lines.begin(), lines.end());
    std::vector<std::string> expected(160, "D call_frame automation_copy_log_to_usb: OK retVal[1]");
    expected.resize(320, "service: CopyLogToUsb ()");
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(library.constructions, std::vector<std::string>{kBusName});
    EXPECT_EQ(library.called, std::set<void*>{library.proxy});
}

// Only while the shared proxy has not heard of a restart do calls and fetches go past it.
TEST(ConnectionTest, CallsGoThroughTheSharedProxyAgainOnceItKnows)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    ASSERT_EQ(automation_copy_log_to_usb(), 0);
    auto* const shared = G_DBUS_PROXY(library.proxy.load());
    const auto callAndFetch = [&] {
        library.called.clear();
        TakeTrace();
        EXPECT_EQ(automation_copy_log_to_usb(), 0);
        _autoamtion_signal_handler_ep();
        return TakeTrace();
    };

    g_autofree char* before = g_dbus_proxy_get_name_owner(shared);
    Restart(service);
    const std::string fetchFailed = Logged(
        "call_frame", "_autoamtion_signal_handler_ep",
        "E ERR: automation_proxy_call_get_ep_protocol_data_sync return false\n"
        "E get_ep_protocol_data_sync err[Method “GetEpProtocolData” returned type “((i))”, but "
        "expected “(au(i))”]");
    const std::string called = "service: CopyLogToUsb ()\n" +
                               Logged("call_frame", "automation_copy_log_to_usb", "D OK retVal[1]");
    const std::string signalled =
        Logged("protocol_events", "_autoamtion_signal_handler_ep", "I Signal Rx ep_handler");
    const std::string fetched = "service: GetEpProtocolData ()\n" + fetchFailed;
    EXPECT_TRUE(Same("past the shared proxy: CopyLogToUsb\n" + called + signalled +
                         "past the shared proxy: GetEpProtocolData\n" + fetched,
                     callAndFetch()));
    EXPECT_EQ(library.constructions.size(), 3U);

    g_autofree char* now = nullptr;
    while (now == nullptr || g_str_equal(now, before)) {
        g_main_context_iteration(nullptr, TRUE);
        g_free(now);
        now = g_dbus_proxy_get_name_owner(shared);
    }
    EXPECT_TRUE(Same(called + signalled + fetched, callAndFetch()));
    EXPECT_EQ(library.called, std::set<void*>{shared});
    EXPECT_EQ(library.constructions.size(), 3U);
}

// What happens while the connection is made is not missed.
TEST(ConnectionTest, ARestartWhileTheProxyIsMadeIsSeen)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    library.afterConstruction = [&] { Restart(service); };
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
}

TEST(ConnectionTest, ABusThatComesUpWhileTheProxyIsMadeIsWatched)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    library.beforeConstruction = [&] {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    };
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
    Restart(service);
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
}

class RestartTest : public testing::TestWithParam<int>
{
};

// FA_RESTART_ROUNDS=300 makes it a long run, with 50 ms after each restart as in a user's program.
TEST_P(RestartTest, FailsNoCall)
{
    const char* longRun = std::getenv("FA_RESTART_ROUNDS");
    const int rounds = longRun != nullptr ? std::atoi(longRun) : 10;
    const PrivateBus bus;
    ScriptedService service(bus);
    ASSERT_EQ(FailuresOf(1, 1), 0);
    int failures = 0;
    for (int round = 0; round < rounds; ++round) {
        if (longRun != nullptr) {
            service.Leave();
            service.Join();
            g_usleep(50'000);
        } else {
            Restart(service);
        }
        failures += FailuresOf(GetParam(), 1);
    }
    EXPECT_EQ(failures, 0);
    const std::vector<std::string> lines = Split(TakeTrace());
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "service: CopyLogToUsb ()"),
              rounds * GetParam() + 1);
}

INSTANTIATE_TEST_SUITE_P(ConnectionTest, RestartTest, testing::Values(8, 16));

// The method calls of each connection, as a monitor sees them; by the connection's name.
std::mutex mutex;
std::map<std::string, std::vector<std::string>> traffic;

GDBusMessage* Record(GDBusConnection* /*monitor*/, GDBusMessage* message, gboolean incoming,
                     gpointer /*data*/)
{
    const char* sender = g_dbus_message_get_sender(message);
    if (incoming == FALSE || sender == nullptr) {
        return message;
    }
    if (g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        GVariant* body = g_dbus_message_get_body(message);
        g_autofree char* arguments = body != nullptr ? g_variant_print(body, FALSE) : g_strdup("");
        const std::lock_guard<std::mutex> lock(mutex);
        traffic[sender].push_back(g_dbus_message_get_member(message) +
                                  (" " + std::string(arguments)));
    }
    g_object_unref(message);  // the bus forbids a monitor to answer
    return nullptr;
}

// The first call sends what a plain proxy and its call send, message by message.
TEST(ConnectionTest, AFirstCallCostsTheBusNoMoreThanAPlainProxy)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    g_autoptr(GDBusConnection) monitor = bus.Connect();
    g_autoptr(GVariant) monitoring = g_dbus_connection_call_sync(
        monitor, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
        "BecomeMonitor", g_variant_new("(asu)", nullptr, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, nullptr);
    ASSERT_NE(monitoring, nullptr);
    g_dbus_connection_add_filter(monitor, Record, nullptr, nullptr);

    g_autoptr(GDBusConnection) plain = bus.Connect();
    g_autoptr(AutomationProxy) proxy = automation_proxy_proxy_new_sync(
        plain, G_DBUS_PROXY_FLAGS_NONE, kBusName, kObjectPath, nullptr, nullptr);
    g_autoptr(GVariant) reply = nullptr;
    ASSERT_TRUE(automation_proxy_call_copy_log_to_usb_sync(proxy, &reply, nullptr, nullptr));
    ASSERT_EQ(automation_copy_log_to_usb(), 0);
    g_autoptr(GDBusConnection) own = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);

    const auto callsOf = [&](GDBusConnection* caller) {
        const std::lock_guard<std::mutex> lock(mutex);
        return traffic[g_dbus_connection_get_unique_name(caller)];
    };
    const gint64 deadline = g_get_monotonic_time() + gint64{60} * G_USEC_PER_SEC;
    while (g_get_monotonic_time() < deadline &&
           (callsOf(own).empty() || callsOf(own).back() != "CopyLogToUsb ")) {
        g_usleep(1000);
    }
    EXPECT_EQ(callsOf(own), callsOf(plain));
    EXPECT_EQ(callsOf(plain).back(), "CopyLogToUsb ");
    g_dbus_connection_close_sync(monitor, nullptr, nullptr);
}

std::vector<std::thread::id> received;

void Receive(ProtocolData_s* /*data*/)
{
    received.push_back(std::this_thread::get_id());
}

TEST(ConnectionTest, CallbacksArriveInTheContextOfTheFirstCaller)
{
    const PrivateBus bus;
    ScriptedService service(bus);
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    std::thread first([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        ASSERT_EQ(automation_close_ex_uart(), 0);
        std::thread([] { EXPECT_EQ(automation_register_callback_ep_protocol(Receive), 0); }).join();
        Restart(service);
        service.Emit("ep_handler");
        AwaitLibrary();
        EXPECT_EQ(FailuresOf(4, 4), 0);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        EXPECT_TRUE(received.empty());
        while (received.empty()) {
            g_main_context_iteration(context, TRUE);
        }
        EXPECT_EQ(received, std::vector<std::thread::id>{std::this_thread::get_id()});
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    first.join();
}

#ifdef FA_SET_SIMULATOR
// A service that is gone, with KILL too, is started by the bus on the next call.
TEST(ConnectionTest, TheBusStartsAServiceThatWasKilled)
{
    std::string folder = (std::filesystem::temp_directory_path() / "fa-bus-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    std::ofstream(folder + "/set.service")
        << "[D-BUS Service]\nName=" << kBusName << "\nExec=/bin/sh -c 'DBUS_SYSTEM_BUS_ADDRESS="
        << "$DBUS_STARTER_ADDRESS exec " FA_SET_SIMULATOR " --quiet'\n";
    const PrivateBus bus(folder.c_str());
    g_autoptr(GDBusConnection) connection = bus.Connect();
    std::set<guint32> services;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(automation_execute_command(0x10, 1), 0);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "GetConnectionUnixProcessID", g_variant_new("(s)", kBusName), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        ASSERT_NE(reply, nullptr);
        guint32 service = 0;
        g_variant_get(reply, "(u)", &service);
        services.insert(service);
        ASSERT_EQ(kill(static_cast<pid_t>(service), SIGKILL), 0);
        while (reply != nullptr) {  // as long as anybody is the service
            g_variant_unref(std::exchange(reply, nullptr));
            reply = g_dbus_connection_call_sync(
                connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                "GetNameOwner", g_variant_new("(s)", kBusName), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                nullptr, nullptr);
        }
        AwaitLibrary();
    }
    EXPECT_EQ(services.size(), 3U);
    std::filesystem::remove_all(folder);
}
#endif

}  // namespace
