// The command line, and how the program ends.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace fa
{

enum ExitStatus : int {
    kAllPassed = 0,  // all was read, and all runs passed where the command tells
    kNotAllPassed = 1,
    kWrongUsage = 2,
    kNotAllRead = 3,  // or not all written
};

// Something that ends the program with one line.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

class UsageError : public Failure
{
public:
    using Failure::Failure;
};

struct Options;

// A command: what it does, and which of the options it takes.
struct Command {
    const char* name;
    ExitStatus (*run)(const Options& options);
    const char* options;  // their names with a blank on each side
};

struct Options {
    const Command* command = nullptr;
    std::vector<std::string> inputs;  // files and folders, "-" for standard input
    std::string output;  // a file, or a folder of a table; empty: standard output, also for "-"
    bool json = false;
    std::string by;
    std::string format = "csv";
    bool partitionByDay = false;
    bool progress = true;  // of long work; the terminal that shows it does not get the output too
};

// Prints and exits for --help and --version. Throws UsageError.
Options ReadOptions(int argc, char** argv);

}  // namespace fa
