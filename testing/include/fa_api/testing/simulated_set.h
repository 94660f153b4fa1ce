// A simulated television set for the tests of an application, in any C++ test framework. Since 1.1.
//
//     fa::SimulatedSet set({"--profile", "line3.ini"});
//     set.AddRules(R"({"out": {"rjp": "02 10"}, "in": {"rjp": "06"}})");
//     fa::SetLine rjp = set.OpenLine("rjp");
//     … call the application's code …
//     rjp.Read(2) is what it sent, set.Calls() is what it asked of the service
//
// The set is a process of its own, fa-set-simulator, found by PATH or by the environment variable
// FA_SET_SIMULATOR. It ends with its object, or with the test's process, however that ends.
//
// Operations throw SetFailure where they cannot be carried out. Those that wait iterate the
// thread's default main context meanwhile, so callbacks of the client arrive, and give up after
// SimulatedSet::deadline. One thread at a time.
#pragma once

#include <glib.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace fa
{

// What went wrong, and what to do about it.
class SetFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The device's end of a serial line of the set; SimulatedSet::OpenLine opens one.
class SetLine
{
public:
    using Bytes = std::vector<unsigned char>;

    ~SetLine();
    SetLine(SetLine&& other) noexcept;
    SetLine(const SetLine&) = delete;
    SetLine& operator=(const SetLine&) = delete;
    SetLine& operator=(SetLine&&) = delete;

    // Waits for `count` bytes of what the set sends.
    Bytes Read(std::size_t count);

    // Writes into the set. What makes a packet of the bytes is the silence that follows them;
    // SimulatedSet::WritePacket needs none.
    void Write(const Bytes& bytes);

    // For poll() and such. Stays the line's.
    int Descriptor() const { return descriptor_; }

private:
    friend class SimulatedSet;
    SetLine(const std::string& name, const std::string& path);

    std::string name_;
    int descriptor_;
};

class SimulatedSet
{
public:
    using Bytes = SetLine::Bytes;

    // How long operations wait for what does not come: 20 seconds, unless a test sets it.
    static std::chrono::milliseconds deadline;

    // Starts a set with options of `fa-set-simulator run`, waits until it is ready, and names it in
    // the process's environment: DBUS_SYSTEM_BUS_ADDRESS, FA_PLATFORM_PROFILE, FA_SET_UART …
    // Make the first one before the first call of the client, which keeps its connection: the sets
    // of a process share one bus, one after the other.
    explicit SimulatedSet(const std::vector<std::string>& options = {});

    // Ends the set. Where it ends with a failure that nobody has asked Finish() for, such as a
    // replay's difference, the failure is printed and the process aborted: no test passes by that.
    ~SimulatedSet();
    SimulatedSet(const SimulatedSet&) = delete;
    SimulatedSet& operator=(const SimulatedSet&) = delete;

    // Ends the set and returns the status of `fa-set-simulator run`, 0 when all is well, and -1
    // where it is not to be had because the process ignores SIGCHLD. What the set said on standard
    // error goes to the test's.
    int Finish() G_GNUC_WARN_UNUSED_RESULT;

    // The line "uart", "ss", "rjp" or "ep", each time with an end of its own.
    SetLine OpenLine(const std::string& name) const;
    // Puts exactly one packet, of 1 to 256 bytes, into the line "ss", "rjp" or "ep".
    void WritePacket(const std::string& line, const Bytes& packet);

    // Adds rules in the form of a scenario file, a JSON object a line. Where one of them is wrong,
    // none is added.
    void AddRules(const std::string& json);
    // Takes back all rules, those of the options too.
    void ClearRules();

    // The calls so far, in their order, or since ForgetCalls(): each a line of JSON as in a record.
    // With a method's name, the calls of that method.
    std::vector<std::string> Calls(const std::string& method = {}) const;
    // Waits until there are `count` such calls or more, and returns them.
    std::vector<std::string> WaitForCalls(std::size_t count, const std::string& method = {}) const;
    void ForgetCalls();

    // Waits until the condition holds; false where it does not in time.
    static bool Wait(const std::function<bool()>& condition) G_GNUC_WARN_UNUSED_RESULT;

private:
    class Process;
    Process& Running() const;

    std::unique_ptr<Process> process_;
    int status_ = 0;
};

}  // namespace fa
