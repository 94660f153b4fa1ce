// Short ways to write records down, and to read the text they give.
#pragma once

#include <fa_api/PelkoAppClientLogger.h>

#include <algorithm>
#include <cstring>
#include <regex>
#include <string>
#include <string_view>

using Logger = PelkoAppClientLogger;

// Fills a field from its start; a text that fills it whole has no NUL in it.
template <typename Byte, std::size_t N>
void Put(Byte (&field)[N], std::string_view text)
{
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

// Values; their other form is noise.
template <typename Number>
PelkoTestItemValue_s Num(Number number)
{
    PelkoTestItemValue_s value{{}, {3, "!!!"}};
    std::memcpy(&value.stNValue, &number, sizeof(value.stNValue));
    return value;
}

inline PelkoTestItemValue_s Bytes(int length, std::string_view bytes)
{
    PelkoTestItemValue_s value{{0x21212121}, {length, ""}};
    Put(value.stCValue.aucData, bytes);
    return value;
}

// A passed item without values.
inline PelkoItem_s MakeItem(std::string_view name, unsigned char code1, unsigned char code2)
{
    PelkoItem_s item{};
    Put(item.szName, name);
    item.ucCode1 = code1;
    item.ucCode2 = code2;
    item.ulResult = 2;
    return item;
}

inline std::string Section(Logger::Mode_e mode, PelkoItem_s item, int index = 0)
{
    std::string section = "replaced";
    return Logger(mode).GetItemLog(section, &item, index) ? section : "refused";
}

// What follows "key=", continuation lines included; "none" where no line begins so.
inline std::string Line(const std::string& section, const std::string& key)
{
    std::smatch line;
    const std::regex form("\n" + key + "=([^\n]*(\n [^\n]*)*)");
    return std::regex_search(section, line, form) ? line[1].str() : "none";
}
