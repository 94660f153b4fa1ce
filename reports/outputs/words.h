// The words and forms that more than one output uses.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "reader/report_reader.h"

namespace fa
{

// "pass", "fail", "timeout", "stop" or nothing.
const char* ResultName(RunResult result);
const char* ResultName(ItemResult result);

// "value", "!=", ">=", "<=", ">", "<", "range" or "list".
const char* KindName(SpecKind kind);

// "2026-11-17 00:13:29", or what the report has where that is no date and time.
std::string StartText(const Run& run);

// ", 0x10 01", or nothing.
std::string CodesText(const std::optional<CodePair>& codes);

// What one of an item's values is compared with; the other texts are empty.
struct LimitTexts {
    std::string_view low;
    std::string_view high;
    std::string_view expected;
};
LimitTexts LimitsOf(const Spec& spec, int position);

}  // namespace fa
