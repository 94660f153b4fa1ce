// One command, run on a simulated set of its own.
#pragma once

#include <string>
#include <vector>

#include "bus/service.h"

namespace fa::set
{

struct RunOptions {
    std::vector<std::string> command;
    std::string bus;           // the address; empty: a private one
    guint timeoutMs = 0;       // after which the command is ended; 0: never
    guint replyTimeoutMs = 0;  // after which a call without an answer fails; 0: the client's
    std::string log;           // the platform log's file; empty: as in the environment
    std::string logPriority;   // of the least important lines that are logged; empty: the same
};

// Starts a bus and the set, runs the command, and stops both. Returns the command's exit status in
// the manner of a shell, or one of our own. Throws Failure.
int RunCommand(const RunOptions& run, ServiceOptions service);

}  // namespace fa::set
