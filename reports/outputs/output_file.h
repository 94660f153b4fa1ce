// Where an output goes, and what the program tells beside it.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "options.h"

namespace fa
{

// A file, or standard output where the name is empty. Failures are thrown as Failure.
class OutputFile
{
public:
    explicit OutputFile(const std::string& name, const char* mode = "we");
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view text);

    // Ends the file; what has not reached it fails here.
    void Close();

    // Implementation details.
private:
    [[noreturn]] void Fail() const;

    std::string name_;
    std::FILE* file_;
};

// Writes all of an output. A file that is there is replaced at once, so nobody sees half of it;
// what is no ordinary file, such as a pipe, is written to.
void WriteWhole(const std::string& name, std::string_view text);

// Prints what was refused on standard error.
void PrintRefused(const std::vector<std::string>& refused);

}  // namespace fa
