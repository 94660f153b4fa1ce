// What the simulated set tells the person who runs it, and how it fails.
#pragma once

#include <glib.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace fa
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

// Throws a Failure with the error's message behind `what`, and frees the error.
[[noreturn]] void ThrowError(const std::string& what, GError* error);

// Prints one line about what happens at the set, at once; nothing after SetQuiet(true).
void Say(const char* format, ...) G_GNUC_PRINTF(1, 2);
void SetQuiet(bool quiet);

// Prints one line about what is wrong, on standard error.
void Complain(const std::string& text);

// "[01 02 7f]"; of a long one the beginning and the number of bytes.
std::string Describe(const Bytes& bytes);

// A method's arguments or result in the same style, such as "3, [01 02 7f]".
std::string Describe(GVariant* values);

}  // namespace fa
