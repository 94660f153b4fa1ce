// Bytes as a rule names them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/console.h"

namespace fa::set
{

// Two hexadecimal digits for each byte, with blanks between them: "02 10". Throws Failure.
Bytes ReadHex(const std::string& text);

// The same, but ".." stands for any byte, and "*" at the end for any bytes or none.
class Pattern
{
public:
    Pattern() = default;  // any bytes

    // Throws Failure.
    explicit Pattern(const std::string& text);

    template <typename Element>
    bool Matches(const Element* elements, std::size_t count) const
    {
        if (count < bytes_.size() || (count > bytes_.size() && !open_)) {
            return false;
        }
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            if (bytes_[i] && *bytes_[i] != elements[i]) {
                return false;
            }
        }
        return true;
    }

private:
    std::vector<std::optional<unsigned char>> bytes_;
    bool open_ = true;
};

}  // namespace fa::set
