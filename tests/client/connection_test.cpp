// What takes threads, restarts or a look at the bus to show: who makes the connection, through
// which proxy calls go, and where callbacks arrive. Nothing here iterates the main context that the
// library's callbacks arrive in, except where it says so.
#include <csignal>
#include <filesystem>
#include <thread>

#include "client/client_test.h"

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";

std::atomic<int> awaited;  // threads that are yet to make their calls

// Calls on so many threads at once, and returns how many of the calls failed.
int FailuresOf(int threads, int callsOfEach)
{
    awaited = threads;
    std::atomic<int> failures{0};
    std::vector<std::thread> callers(static_cast<std::size_t>(threads));
    for (std::thread& caller : callers) {
        caller = std::thread([&] {
            --awaited;
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

using ConnectionTest = ClientTest;

const std::string kCalled = "service: CopyLogToUsb ()\n" +
                            Logged("call_frame", "automation_copy_log_to_usb", "D OK retVal[1]");

TEST_F(ConnectionTest, FirstCallsAtOnceMakeOneProxy)
{
    library.beforeConstruction = [] {
        while (awaited > 0) {
            std::this_thread::yield();
        }
    };
    EXPECT_EQ(FailuresOf(8, 20), 0);
    const std::string trace = TakeTrace();
    EXPECT_TRUE(Same(Connected(), trace.substr(0, Connected().size())));
    const std::vector<std::string> lines = Split(trace.substr(Connected().size()));
    EXPECT_EQ(lines.size(), 160 * Split(kCalled).size());
    for (const std::string& line : Split(kCalled)) {
        EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 160);
    }
}

// Only while the shared proxy has not heard of a restart do calls and fetches go past it.
TEST_F(ConnectionTest, CallsGoThroughTheSharedProxyAgainOnceItKnows)
{
    const auto callAndFetch = [](const std::string& past, const std::string& released) {
        const std::string fetch = "protocol_events _autoamtion_signal_handler_ep: ";
        automation_copy_log_to_usb();
        _autoamtion_signal_handler_ep();
        EXPECT_TRACE(past + kCalled + released + "I " + fetch + "Signal Rx ep_handler\n" + past +
                     "service: GetEpProtocolData ()\nE " + fetch +
                     "GetEpProtocolData Fails retVal[0]\n" + released);
    };
    service.Answer("GetEpProtocolData", "(@au [], (0,))");
    automation_copy_log_to_usb();
    EXPECT_TRACE(Connected() + kCalled);
    Restart();
    const std::string past =
        "new proxy on bus 1 with flags 19: " + service.UniqueName() + " /KVFacAutoObj\n";
    callAndFetch(past, "proxy released\n");
    const auto knows = [&] {
        g_autofree char* owner = g_dbus_proxy_get_name_owner(G_DBUS_PROXY(library.proxy.load()));
        return owner != nullptr && owner == service.UniqueName();
    };
    while (!knows()) {
        g_main_context_iteration(nullptr, TRUE);
    }
    callAndFetch("", "");
}

// What happens while the connection is made is not missed.
TEST_F(ConnectionTest, ARestartWhileTheProxyIsMadeIsSeen)
{
    library.afterConstruction = [&] { Restart(); };
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
}

TEST_F(ConnectionTest, ABusThatComesUpWhileTheProxyIsMadeIsWatched)
{
    HideBus();
    library.beforeConstruction = [&] { ShowBus(); };
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
    Restart();
    EXPECT_EQ(automation_copy_log_to_usb(), 0);
}

TEST_F(ConnectionTest, RestartsFailNoCallOfManyThreads)
{
    ASSERT_EQ(automation_copy_log_to_usb(), 0);
    int failures = 0;
    for (int round = 0; round < 10; ++round) {
        Restart();
        failures += FailuresOf(16, 1);
    }
    EXPECT_EQ(failures, 0);
    const std::vector<std::string> lines = Split(TakeTrace());
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "service: CopyLogToUsb ()"), 161);
}

// By the number of the last message that was sent.
TEST_F(ConnectionTest, AFirstCallSendsNoMoreThanAPlainProxy)
{
    g_autoptr(GDBusConnection) plain = bus.Connect();
    g_autoptr(GDBusConnection) own = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_autoptr(AutomationProxy) proxy = automation_proxy_proxy_new_sync(
        plain, G_DBUS_PROXY_FLAGS_NONE, kBusName, "/KVFacAutoObj", nullptr, nullptr);
    g_autoptr(GVariant) reply = nullptr;
    ASSERT_TRUE(automation_proxy_call_copy_log_to_usb_sync(proxy, &reply, nullptr, nullptr));
    ASSERT_EQ(automation_copy_log_to_usb(), 0);
    EXPECT_EQ(g_dbus_connection_get_last_serial(own), g_dbus_connection_get_last_serial(plain));
}

std::vector<std::thread::id> received;

void Receive(ProtocolData_s* /*data*/)
{
    received.push_back(std::this_thread::get_id());
}

TEST_F(ConnectionTest, CallbacksArriveInTheContextOfTheFirstCaller)
{
    service.Answer("GetEpProtocolData", "(@au [5, 6], (1,))");
    std::thread first([&] {
        g_autoptr(GMainContext) context = g_main_context_new();
        g_main_context_push_thread_default(context);
        ASSERT_EQ(automation_close_ex_uart(), 0);
        std::thread([] { EXPECT_EQ(automation_register_callback_ep_protocol(Receive), 0); }).join();
        Restart();
        service.Emit("ep_handler");
        Iterate();
        EXPECT_EQ(FailuresOf(4, 4), 0);
        EXPECT_FALSE(g_main_context_pending(nullptr));
        EXPECT_TRUE(received.empty());
        while (received.empty()) {
            g_main_context_iteration(context, TRUE);
        }
        EXPECT_EQ(received, std::vector<std::thread::id>{std::this_thread::get_id()});
        g_main_context_pop_thread_default(context);
    });
    first.join();
}

#ifdef FA_SET_SIMULATOR
// A service that is gone, with KILL too, is started by the bus on the next call.
TEST(ServiceTest, IsStartedByTheBusAfterItWasKilled)
{
    std::string folder = (std::filesystem::temp_directory_path() / "fa-bus-XXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    std::ofstream(folder + "/set.service")
        << "[D-BUS Service]\nName=" << kBusName << "\nExec=/bin/sh -c 'DBUS_SYSTEM_BUS_ADDRESS="
        << "$DBUS_STARTER_ADDRESS exec " FA_SET_SIMULATOR " --quiet'\n";
    const PrivateBus bus(folder.c_str());
    g_autoptr(GDBusConnection) connection = bus.Connect();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(automation_execute_command(0x10, 1), 0);
        const pid_t service = ProcessOf(connection, kBusName);
        ASSERT_GT(service, 0);
        ASSERT_EQ(kill(service, SIGKILL), 0);
        // As long as the bus takes it for the service.
        while (g_autoptr(GVariant) reply =
                   CallBus(connection, "GetNameOwner", g_variant_new("(s)", kBusName))) {
        }
        AwaitLibrary();
    }
    std::filesystem::remove_all(folder);
}
#endif

}  // namespace
