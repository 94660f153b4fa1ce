// The record of all calls: one JSON object a line, for tests to assert on.
#pragma once

#include <glib.h>

#include <cstdio>
#include <string>

namespace fa
{

// What became of a call.
struct Outcome {
    GVariant* reply = nullptr;  // null where no result was given
    const char* fault = "";     // the fault that had a hand in it
};

class Recorder
{
public:
    // Begins the file anew; an empty path records nothing. Throws Failure.
    explicit Recorder(std::string path);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // `names` are those of the arguments, null-terminated.
    void Write(const char* method, const char* const* names, GVariant* arguments,
               const Outcome& outcome);

private:
    const std::string path;
    std::FILE* file = nullptr;
};

}  // namespace fa
