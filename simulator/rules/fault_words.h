// Rules in a few words, as the command line and the control interface have them: faults.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "rules/rule.h"

namespace fa::set
{

// A fault as a person or a test names it.
struct FaultRequest {
    std::string target;
    std::string kind;
    std::optional<int> value;
    unsigned int times = 0;
};

// Reads the words TARGET KIND [VALUE] [times N]. Throws UsageError.
FaultRequest ReadFault(const std::vector<std::string>& words);

// The value that the request means. Throws UsageError for an unknown target or kind, a kind that
// the target does not have, a value out of the kind's range and a limit on what happens at once.
int CheckFault(const FaultRequest& request);

// The rule that the request means. Throws UsageError.
Rule ToRule(const FaultRequest& request);

// The words: "CloseExUart result 0 times 3".
std::string Describe(const FaultRequest& request);

// So many packets of two bytes, a number counted from 0.
void AddBurst(Rule& rule, Line line, int count);

}  // namespace fa::set
