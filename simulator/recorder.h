// The record of all calls: one JSON object a line, for tests to assert on.
#pragma once

#include <gio/gio.h>

#include <cstdio>
#include <deque>
#include <string>

namespace fa
{

class Recorder
{
public:
    // Begins the file anew; an empty path records nothing. Throws Failure.
    explicit Recorder(std::string path);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Keeps a call, and returns it as its line. `reply` is null where no result was given; `fault`
    // names the fault that had a hand in it.
    const std::string& Write(const GDBusMethodInfo* method, GVariant* arguments, GVariant* reply,
                             const char* fault);

    // The latest calls, oldest first.
    const std::deque<std::string>& Calls() const { return calls; }
    void ForgetCalls() { calls.clear(); }

    // Why the record is incomplete; empty where it is not.
    const std::string& Shortfall() const { return shortfall; }

private:
    const std::string path;
    std::string shortfall;
    std::deque<std::string> calls;
    std::FILE* file = nullptr;
};

}  // namespace fa
