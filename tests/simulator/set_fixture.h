// The simulated set as a process beside the test, on the test's bus.
#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/private_bus.h"

using Words = std::vector<std::string>;

// The set's program with these words. Its standard output and standard error go to the files, where
// any are named; `setUp` runs in it first.
pid_t Spawn(const Words& words, const std::string& outputFile = {},
            const std::string& errorFile = {}, const std::function<void()>& setUp = {});

// Waits for its end; its exit status in the manner of a shell.
int WaitFor(pid_t child);

// Runs it to its end; both outputs go to the file, if any.
int RunSet(const Words& words, const std::string& outputFile = {});

std::string TextOf(const std::string& path);
void WriteText(const std::string& path, const std::string& text);

// The text without the times of a recording.
std::string WithoutTimes(const std::string& text);

// Starts a set whose lines are links in `folder`, named uart, ss, rjp and ep; ends it at the end of
// each test and checks that it leaves nothing behind.
class SetTest : public ::testing::Test
{
protected:
    SetTest();
    ~SetTest() override;

    void Start(const Words& options = {});
    // Signals the set, waits for its end and checks its status.
    void Stop(int signal = SIGTERM, int status = 0);

    // Calls a method of the service with arguments in GVariant's text form. Returns the reply in
    // that form without its outer parentheses, or the error: "(1,)", "Fault: a fault on demand".
    std::string Call(const std::string& method, const std::string& arguments = "()");
    // The same of the control interface.
    std::string Ask(const std::string& method, const std::string& arguments = "()");

    // What the service has announced since the last time, such as "ss 2 bytes on ss".
    Words Announcements();
    // Waits until so many have come, and returns them.
    Words AwaitAnnouncements(std::size_t count);

    std::string In(const std::string& name) const { return (folder / name).string(); }
    // What the set has printed.
    std::string Output() const { return TextOf(In("output")); }
    int OpenLine(const std::string& name) const;
    void Write(const std::string& line, const std::string& bytes) const;
    // Up to so many bytes from the line, fewer where it hangs up or nothing comes.
    static std::string Read(int line, std::size_t count);
    std::string Read(const std::string& line, std::size_t count) const;
    // Iterates the main context until the condition holds; false when it never does.
    static bool Wait(const std::function<bool()>& condition);

    // Calls the function for each signal, while the test runs.
    void Subscribe(const char* sender, const char* interface, const char* signal,
                   GDBusSignalCallback function, gpointer data);

    std::filesystem::path folder;
    PrivateBus bus;
    GDBusConnection* connection = nullptr;
    pid_t set = 0;

private:
    std::string Send(const char* interface, const std::string& method,
                     const std::string& arguments);

    std::vector<guint> subscriptions;
    Words announcements;
};
