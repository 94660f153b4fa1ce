// Output to somebody who may be slow to read it.
#pragma once

#include <string>

namespace fa::set
{

// A descriptor of our own for the same file, which does not block where it is a pipe or a terminal;
// or the given one where there is none to be had. Never fails.
int OpenOutput(int descriptor);

// Writes all of it; waits for the reader, but not beyond a signal that ends the program. Returns
// 0, or the error: EINTR for the signal. `written` counts the bytes.
int WriteAll(int descriptor, const std::string& text, std::size_t& written);

}  // namespace fa::set
