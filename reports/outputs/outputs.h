// What the program writes: a function for each command, in a file of its own.
#pragma once

#include "options.h"

namespace fa
{

ExitStatus Show(const Options& options);
ExitStatus Summarize(const Options& options);
ExitStatus Page(const Options& options);
ExitStatus Junit(const Options& options);
ExitStatus Table(const Options& options);

}  // namespace fa
