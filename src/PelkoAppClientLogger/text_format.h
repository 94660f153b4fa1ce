// Numbers appended to text, independent of every locale.
#pragma once

#include <charconv>
#include <cstddef>
#include <string>

namespace fa
{

template <typename Integer>
void AppendNumber(std::string& text, Integer number)
{
    char digits[24];
    text.append(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
}

// Appends a number with zeros on its left, in front of a sign as well, up to `width` characters.
inline void AppendPadded(std::string& text, long long number, std::size_t width)
{
    char digits[24];
    const char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
    const auto length = static_cast<std::size_t>(end - digits);
    if (length < width) {
        text.append(width - length, '0');
    }
    text.append(digits, length);
}

// Appends a byte as two lowercase hexadecimal digits.
inline void AppendHexByte(std::string& text, unsigned char byte)
{
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
}

// Appends one "key=text" line.
inline void AppendLine(std::string& text, std::string_view key, std::string_view value)
{
    text.append(key).append("=").append(value).append("\n");
}

template <typename Integer>
void AppendNumberLine(std::string& text, std::string_view key, Integer number)
{
    text.append(key).append("=");
    AppendNumber(text, number);
    text += '\n';
}

}  // namespace fa
