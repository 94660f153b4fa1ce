// One command, run on a simulated set of its own.
#pragma once

#include "options.h"

namespace fa
{

// Starts a bus and the set, runs the command, and stops both. Returns the command's exit status in
// the manner of a shell. Throws Failure.
int RunCommand(Options options);

}  // namespace fa
