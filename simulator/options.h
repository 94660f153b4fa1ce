// The command line.
#pragma once

#include <glib.h>

#include <map>
#include <string>
#include <vector>

#include "faults.h"

namespace fa
{

enum class Mode { kServe, kRun, kFault };

struct Options {
    Mode mode = Mode::kServe;
    std::string profile;                       // empty: none
    std::map<std::string, std::string> links;  // by the line's name
    std::string record;
    std::string logFolder;
    std::string usbFolder;
    guint gapMs = 10;
    std::vector<FaultRequest> faults;

    // Where a link to the line is wanted; else empty.
    std::string Link(const std::string& line) const
    {
        const auto found = links.find(line);
        return found != links.end() ? found->second : "";
    }

    std::vector<std::string> words;  // of `run`: the command; of `fault`: the fault
};

// The names of the lines, in the order in which they are opened.
constexpr const char* kLines[] = {"uart", "ss", "rjp", "ep"};

// Prints and exits for --help and --version. Throws UsageError.
Options ReadOptions(int argc, char** argv);

}  // namespace fa
