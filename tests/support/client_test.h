// The ground that the client's tests stand on.
#pragma once

#include <fa_api/automation_api.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/private_bus.h"
#include "support/scripted_service.h"

using Texts = std::vector<std::string>;

// The line of a first call that connects, and of every call that cannot.
extern const std::string kConnected;
extern const std::string kNoConnection;

// The lines that `function` logs: "E text" becomes "E function: text", and "" no line.
Texts By(const std::string& function, const Texts& messages);

// Bytes as the service records them: "[16, 255]".
std::string ByteList(const std::string& bytes);

Texts operator+(Texts first, const Texts& second);

// A bus with the service on it, and a record of the library's log. GLib must not warn.
class ClientTest : public ::testing::Test
{
protected:
    ClientTest();
    ~ClientTest() override;

    // Makes a call and compares its result, all that it logs and all that the service receives.
    void Expect(const std::function<int()>& call, int result, const Texts& lines,
                const Texts& calls = {});

    // Compares what is logged, and iterates the default main context until enough is.
    void ExpectLines(const Texts& lines);

    // Compares what GLib has warned of, without addresses.
    void ExpectWarnings(const Texts& expected);

    // From here on there is no bus for the library to connect to.
    static void HideBus();

    static GDBusConnection* LibraryConnection();

    // Returns when the bus has taken all that was sent over the connection before, and the
    // connection has received all that the bus sent to it.
    static void Settle(GDBusConnection* connection = LibraryConnection());

    PrivateBus bus;
    ScriptedService service{bus};
    LogCapture log;
    Texts warnings;
    void* proxy = nullptr;  // as logged when it was made
};
