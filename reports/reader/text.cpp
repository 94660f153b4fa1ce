#include "reader/text.h"

#include <glib.h>

#include <algorithm>

namespace fa
{

namespace
{

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

bool HasPlace(gunichar character)
{
    return (character >= ' ' || character == '\t') && !(character >= 0x7F && character < 0xA0) &&
           character != 0xFFFE && character != 0xFFFF;
}

}  // namespace

std::string ValidText(std::string_view bytes)
{
    if (std::all_of(bytes.begin(), bytes.end(), [](char c) { return c >= ' ' && c < 0x7F; })) {
        return std::string(bytes);
    }
    g_autofree char* valid = g_utf8_make_valid(bytes.data(), static_cast<gssize>(bytes.size()));
    std::string text;
    for (const char* next = valid; *next != '\0';) {
        const char* const end = g_utf8_next_char(next);
        text += HasPlace(g_utf8_get_char(next))
                    ? std::string_view(next, static_cast<std::size_t>(end - next))
                    : kReplacement;
        next = end;
    }
    return text;
}

}  // namespace fa
