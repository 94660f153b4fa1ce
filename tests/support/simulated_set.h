// The simulated set as a process beside the test, on the test's bus.
#pragma once

#include <fa_api/automation_api.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/private_bus.h"

using Bytes = std::vector<unsigned char>;
using Words = std::vector<std::string>;

// Runs a program to its end and returns its exit status; its output goes to the file, if any.
int RunProgram(const Words& words, const std::string& outputFile = {});

std::string TextOf(const std::string& path);

// Starts a set whose lines are links in `folder`, named uart, ss, rjp and ep; ends it at the end of
// each test and checks that it leaves nothing behind.
class SimulatedSetTest : public ::testing::Test
{
protected:
    SimulatedSetTest();
    ~SimulatedSetTest() override;

    void Start(const Words& options = {});
    // Signals the set, waits for its end and checks its status.
    void Stop(int signal = SIGTERM, int status = 0);
    void Fault(const Words& words);

    std::string In(const std::string& name) const { return (folder / name).string(); }
    int OpenLine(const std::string& name) const;
    // Iterates the main context until the condition holds; false when it never does.
    static bool Wait(const std::function<bool()>& condition);
    static Bytes Read(int line, std::size_t count);

    std::filesystem::path folder;
    PrivateBus bus;
    LogCapture log;
    GPid set = 0;
};
