// Texts of the platform's system information.
#pragma once

#include <fa_platform/system_info.h>

#include <cstdlib>
#include <memory>

namespace fa
{

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};

struct SystemText {
    int error;                             // 0 on success
    std::unique_ptr<char, FreeText> text;  // null where none came back
};

inline SystemText QuerySystemText(int key)
{
    char* text = nullptr;
    const int error = system_info_get_value_string(key, &text);
    return {error, std::unique_ptr<char, FreeText>(text)};
}

}  // namespace fa
