// Short ways to write records down, and to read the text they give.
#pragma once

#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <string>

using Logger = PelkoAppClientLogger;
constexpr auto S = Logger::MODE_SIMPLE;
constexpr auto D = Logger::MODE_DETAIL;
constexpr auto R = Logger::MODE_RAW;

// Fills a field from its start, and tells how many bytes there are; a text that fills it whole has
// no NUL in it.
template <typename Byte, std::size_t N>
int Put(Byte (&field)[N], std::string_view text)
{
    std::memcpy(field, text.data(), std::min(N, text.size()));
    return static_cast<int>(std::min(N, text.size()));
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

// Sets numbers of an item, as in "spec=7 spectype=3 limit=-0.5".
inline void Set(PelkoItem_s& item, const std::string& settings)
{
    using Item = PelkoItem_s;
    static const std::map<std::string, std::size_t> kPlaces = {
        {"flags", offsetof(Item, ulErrorFlag)},
        {"tid", offsetof(Item, iTid)},
        {"ltid", offsetof(Item, lTid)},
        {"insptype", offsetof(Item, eInspType)},
        {"datatype", offsetof(Item, eMsgDataType)},
        {"datalength", offsetof(Item, stMsgData)},
        {"result", offsetof(Item, ulResult)},
        {"retries", offsetof(Item, iRetryCount)},
        {"spec", offsetof(Item, iSpecType)},
        {"spectype", offsetof(Item, eSpecValueType)},
        {"specs", offsetof(Item, iSpecCount)},
        {"limit", offsetof(Item, astSpec)},
        {"limitlength", offsetof(Item, astSpec) + offsetof(PelkoTestItemValue_s, stCValue)},
        {"starttime", offsetof(Item, ulStartTime)},
        {"duration", offsetof(Item, ulDuration)},
        {"skips", offsetof(Item, iSkipCount)},
        {"errors", offsetof(Item, iErrorCount)},
        {"expect", offsetof(Item, iExpectCount)},
        {"select", offsetof(Item, iSelectIndex)},
        {"measures", offsetof(Item, iMeasureCount)},
        {"extras", offsetof(Item, iExtraCount)},
        {"type", offsetof(Item, eMeasureValueType)},
        {"codes", offsetof(Item, iListCount)}};
    std::istringstream words(settings);
    std::string value;
    for (std::string name; std::getline(words >> std::ws, name, '=') && words >> value;) {
        const auto number = static_cast<unsigned int>(std::stoll(value));
        const float decimal = std::stof(value);
        const bool isDecimal = value.find('.') != std::string::npos;
        std::memcpy(reinterpret_cast<char*>(&item) + kPlaces.at(name),
                    isDecimal ? static_cast<const void*>(&decimal) : &number, sizeof(number));
    }
}

// A passed item without values.
inline PelkoItem_s MakeItem(std::string_view name, unsigned char code1, unsigned char code2,
                            const std::string& settings = "")
{
    PelkoItem_s item{};
    Put(item.szName, name);
    item.ucCode1 = code1;
    item.ucCode2 = code2;
    Set(item, "result=2 " + settings);
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
