// What the library logs, line by line.
#pragma once

#include <mutex>
#include <string>
#include <vector>

// Records the platform log while it lives. A line reads "D function: message", with the priority's
// letter first; a line that breaks the form all lines share is recorded as it came, behind "BAD ".
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();

    // The lines so far, which are forgotten.
    std::vector<std::string> Take();

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};
