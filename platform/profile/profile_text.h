// The profile of the platform underneath: what it answers to all that the library asks it.
#pragma once

#include <string>
#include <vector>

namespace fa
{

struct PlatformProfile {
    // In the form that the simulated platform reads. A query that failed has no entry, so it fails
    // there as well; a comment tells its status.
    std::string text;
    // What was answered and has no place in that form, a sentence each.
    std::vector<std::string> losses;
};

// Asks each query once, with what the library passes to it.
PlatformProfile AskPlatform();

}  // namespace fa
