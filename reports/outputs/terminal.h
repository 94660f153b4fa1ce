// Pieces of text for a terminal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fa
{

// Valid text in just so many columns: cut with "...", or filled with blanks on its right or left.
std::string Left(std::string_view text, std::size_t columns);
std::string Right(std::string_view text, std::size_t columns);

// A number in a few digits, such as 4.98 or 1.2e+06.
std::string Digits(double number, int significant = 5);

// "93.64 %", rounded down so that nothing but all is 100 %; "-" for nothing.
std::string Percent(const std::optional<double>& share);

// "1 run", "2 runs".
std::string Counted(std::uint64_t count, const std::string& what);

}  // namespace fa
