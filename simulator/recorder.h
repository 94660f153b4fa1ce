// The record of all calls: one JSON object a line, for tests to assert on.
#pragma once

#include <gio/gio.h>

#include <cstdio>
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

    // `reply` is null where no result was given; `fault` names the fault that had a hand in it.
    void Write(const GDBusMethodInfo* method, GVariant* arguments, GVariant* reply,
               const char* fault);

    // Why the record is incomplete; empty where it is not.
    const std::string& Shortfall() const { return shortfall; }

private:
    const std::string path;
    std::string shortfall;
    std::FILE* file = nullptr;
};

}  // namespace fa
