// The words of a report, which its writer and its reader share.
#pragma once

#include <fa_api/PelkoRecords.h>

#include <iterator>
#include <string_view>

namespace fa
{

constexpr char kPassWord[] = "pass";
constexpr char kFailWord[] = "fail";
constexpr char kTimeoutWord[] = "timeout";
constexpr char kStopWord[] = "stop";

constexpr char kAuto[] = "auto";
constexpr char kNormal[] = "normal";

// What stands for something that could not be asked, or that the set lacks.
constexpr char kUnknown[] = "*****";
constexpr char kNotSupported[] = "Not Supported";

// What goes between the values of a list.
constexpr std::string_view kListSeparator = ",";
constexpr std::string_view kSimpleListSeparator = "\n    ";
constexpr std::string_view kSimpleListEnd = "...";

// The operators that follow a specification's value, by PelkoSpecType_e.
constexpr std::string_view kSpecOperators[] = {"", "", "!=", ">=", "<=", ">", "<"};
static_assert(std::size(kSpecOperators) == SPEC_RANGE, "the kinds with other forms come last");
constexpr std::string_view kSpecRange = "~";

inline std::string_view SpecOperator(int specType)
{
    return specType > 0 && specType < SPEC_RANGE ? kSpecOperators[specType] : "";
}

}  // namespace fa
