#include "outputs/words.h"

#include <cstdio>
#include <utility>

#include "PelkoAppClientLogger/report_words.h"
#include "reader/text.h"

namespace fa
{

const char* ResultName(RunResult result)
{
    constexpr const char* kNames[] = {"", kPassWord, kFailWord, kTimeoutWord, kStopWord};
    return kNames[static_cast<std::size_t>(result)];
}

const char* ResultName(ItemResult result)
{
    constexpr const char* kNames[] = {"", kPassWord, kFailWord};
    return kNames[static_cast<std::size_t>(result)];
}

const char* KindName(SpecKind kind)
{
    constexpr const char* kNames[] = {"value", "!=", ">=", "<=", ">", "<", "range", "list"};
    return kNames[static_cast<std::size_t>(kind)];
}

std::string StartText(const Run& run)
{
    std::string text = ValidText(run.startTime);
    if (run.start != 0) {
        constexpr std::pair<std::size_t, char> kSigns[] = {
            {12, ':'}, {10, ':'}, {8, ' '}, {6, '-'}, {4, '-'}};
        for (const auto& [place, sign] : kSigns) {
            text.insert(place, 1, sign);
        }
    }
    return text;
}

std::string CodesText(const std::optional<CodePair>& codes)
{
    if (!codes) {
        return "";
    }
    char text[24];
    std::snprintf(text, sizeof(text), ", 0x%02x %02x", codes->code1, codes->code2);
    return text;
}

LimitTexts LimitsOf(const Spec& spec, int position)
{
    LimitTexts limits;
    if (HasLowLimit(spec.kind)) {
        limits.low = spec.limits.front();
    }
    if (HasHighLimit(spec.kind)) {
        limits.high = spec.limits.back();
    }
    if (!HasLowLimit(spec.kind) && !HasHighLimit(spec.kind)) {
        const auto place =
            spec.kind == SpecKind::kList ? static_cast<std::size_t>(position) - 1 : 0;
        limits.expected = place < spec.limits.size() ? spec.limits[place] : std::string_view();
    }
    return limits;
}

}  // namespace fa
