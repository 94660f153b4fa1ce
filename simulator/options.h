// The command line.
#pragma once

#include <string>
#include <vector>

#include "bus/service.h"
#include "run/command.h"

namespace fa::set
{

enum class Mode { kServe, kRun, kFault, kCapture };

struct Options {
    Mode mode = Mode::kServe;
    ServiceOptions service;
    RunOptions run;
    std::vector<std::string> words;  // of `fault`: the fault; of `capture`: the file
};

// Prints and exits for --help and --version. Throws UsageError.
Options ReadOptions(int argc, char** argv);

}  // namespace fa::set
