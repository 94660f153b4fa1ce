// What the simulated set tells the person who runs it, and how it fails.
#pragma once

#include <glib.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace fa::set
{

using Bytes = std::vector<unsigned char>;

// Something that ends the program, or the request at hand, with one line.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A wrong command line.
class UsageError : public Failure
{
public:
    using Failure::Failure;
};

// The program's exit statuses of its own, apart from EXIT_SUCCESS and EXIT_FAILURE.
constexpr int kUsage = 2;
constexpr int kDifferent = 123;  // a replay that differs from its recording
constexpr int kTimedOut = 124;
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

// Prints one line about what happens at the set, at once; nothing after SetQuiet(true). Both print
// on standard error, and wait for its reader, but not beyond a signal that ends the program.
void Say(const char* format, ...) G_GNUC_PRINTF(1, 2);
void SetQuiet(bool quiet);
bool IsQuiet();

// Prints one line about what is wrong.
void Complain(const std::string& text);

// "02 10 7f"
std::string ToHex(const Bytes& bytes);

// "[02 10 7f]"; of a long one the beginning and the number of bytes.
std::string Describe(const Bytes& bytes);

// A method's arguments or result in the same style, such as "3, [01 02 7f]".
std::string Describe(GVariant* values);

}  // namespace fa::set
