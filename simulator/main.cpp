// The simulated set, as a program.
#include <clocale>
#include <csignal>
#include <cstdlib>

#include "bus/control.h"
#include "conversation/capture.h"
#include "options.h"
#include "run/command.h"
#include "support/main_loop.h"

namespace fa::set
{

namespace
{

int Serve(const ServiceOptions& options)
{
    MainLoop loop([&](const Signal& /*signal*/) { loop.Quit(EXIT_SUCCESS); });
    Service service(options, {[] {}, [&](int status) { loop.Quit(status); }});
    service.Join();
    const int status = loop.Run();
    const int own = service.Finish();
    return own != EXIT_SUCCESS ? own : status;
}

// Changes the set that runs on the bus.
void ChangeFaults(const std::vector<std::string>& words)
{
    const char* method = "ClearFaults";
    Variant arguments;
    if (words != std::vector<std::string>{"clear"}) {
        const FaultRequest request = ReadFault(words);
        method = "SetFault";
        arguments = Own(g_variant_new("(ssiu)", request.target.c_str(), request.kind.c_str(),
                                      CheckFault(request), request.times));
    }
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        Connect().get(), kBusName, kObjectPath, ControlInterface()->name, method, arguments.get(),
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &error);
    if (reply != nullptr) {
        return;
    }
    g_dbus_error_strip_remote_error(error);
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS)) {
        throw UsageError(error->message);
    }
    throw Failure(std::string("fault: ") +
                  (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) ||
                           g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN)
                       ? "no set is on this bus"
                       : error->message));
}

int Run(const Options& options)
{
    switch (options.mode) {
        case Mode::kRun:
            CatchSignals();
            return RunCommand(options.run, options.service);
        case Mode::kFault:
            ChangeFaults(options.words);
            return EXIT_SUCCESS;
        case Mode::kCapture:
            return Capture(options.words.front());
        case Mode::kServe:
            CatchSignals();
            return Serve(options.service);
    }
    return EXIT_FAILURE;
}

}  // namespace

}  // namespace fa::set

int main(int argc, char** argv)
{
    using namespace fa::set;
    // A reader of our output that has gone, or a file that grows too large, is no reason to leave
    // links behind. Unlike an ignored signal, one with a function is not handed down to a command.
    std::signal(SIGPIPE, [](int) {});
    std::signal(SIGXFSZ, [](int) {});
    std::setlocale(LC_CTYPE, "");  // the character set that --help is printed in
    try {
        return Run(ReadOptions(argc, argv));
    } catch (const UsageError& error) {
        Complain(std::string(error.what()) + " (--help tells more)");
        return kUsage;
    } catch (const std::exception& error) {
        Complain(error.what());
        return EXIT_FAILURE;
    }
}
