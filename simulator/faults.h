// Faults on demand: what they are called, and which calls they are for.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "console.h"

namespace fa
{

enum class FaultKind { kResult, kDelay, kError, kNoAnswer, kEmpty, kLong, kBurst, kLeave };

struct Fault {
    FaultKind kind;
    const char* name;
    int value;
    unsigned int times;  // 0: for good
};

// A fault as a person or a test names it.
struct FaultRequest {
    std::string target;
    std::string kind;
    std::optional<int> value;
    unsigned int times = 0;
};

// Reads the words TARGET KIND [VALUE] [times N]. Throws UsageError.
FaultRequest ReadFault(const std::vector<std::string>& words);

// The fault that is meant. Throws UsageError for an unknown kind, a kind that the target does not
// have, a value out of the kind's range and a limit on what happens at once.
Fault CheckFault(const FaultRequest& request);

// The words behind the target: "result 0 times 3".
std::string Describe(const Fault& fault);

class Faults
{
public:
    void Set(const std::string& method, const Fault& fault) { faults[method] = fault; }
    void Clear() { faults.clear(); }

    // The fault for a call of the method that is being made now.
    std::optional<Fault> Take(const std::string& method);

private:
    std::map<std::string, Fault> faults;
};

}  // namespace fa
