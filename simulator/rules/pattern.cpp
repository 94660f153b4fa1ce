#include "rules/pattern.h"

#include <sstream>

namespace fa::set
{

namespace
{

unsigned char ReadByte(const std::string& word)
{
    if (word.size() != 2 || !g_ascii_isxdigit(word[0]) || !g_ascii_isxdigit(word[1])) {
        throw Failure("\"" + word + "\" is no byte of two hexadecimal digits");
    }
    return static_cast<unsigned char>(g_ascii_xdigit_value(word[0]) * 16 +
                                      g_ascii_xdigit_value(word[1]));
}

}  // namespace

Bytes ReadHex(const std::string& text)
{
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        bytes.push_back(ReadByte(word));
    }
    return bytes;
}

Pattern::Pattern(const std::string& text) : open_(false)
{
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (open_) {
            throw Failure("\"*\" can only be the last of the bytes");
        }
        if (word == "*") {
            open_ = true;
        } else {
            bytes_.push_back(word == ".." ? std::nullopt : std::make_optional(ReadByte(word)));
        }
    }
}

}  // namespace fa::set
