// Texts of a report as text that every output can hold.
#pragma once

#include <string>
#include <string_view>

namespace fa
{

// The bytes as valid UTF-8. U+FFFD stands for what is none, for control characters other than the
// tab, and for the two code points that no text may hold (U+FFFE, U+FFFF), so that a name can
// neither end a line nor steer a terminal, and XML can hold it.
std::string ValidText(std::string_view bytes);

}  // namespace fa
