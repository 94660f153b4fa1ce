#include "rules/rule.h"

#include <algorithm>

namespace fa::set
{

namespace
{

bool Matches(const Rule::Argument& argument, GVariant* arguments)
{
    g_autoptr(GVariant) value = g_variant_get_child_value(arguments, argument.index);
    if (const auto* number = std::get_if<gint32>(&argument.value)) {
        return g_variant_get_int32(value) == *number;
    }
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(value, &count, sizeof(guint32)));
    return std::get<Pattern>(argument.value).Matches(elements, count);
}

bool IsForAll(const Rule& rule)
{
    return rule.method == kAllMethods;
}

}  // namespace

void Rules::Add(const Rule& rule)
{
    const auto place =
        IsForAll(rule) ? rules_.end() : std::find_if(rules_.begin(), rules_.end(), IsForAll);
    rules_.insert(place, rule);
}

void Rules::SetFault(const Rule& rule)
{
    const auto earlier = [&](const Rule& each) {
        return each.isFault && each.method == rule.method;
    };
    rules_.erase(std::remove_if(rules_.begin(), rules_.end(), earlier), rules_.end());
    const auto place =
        IsForAll(rule) ? std::find_if(rules_.begin(), rules_.end(), IsForAll) : rules_.begin();
    rules_.insert(place, rule);
}

void Rules::ClearFaults()
{
    const auto isFault = [](const Rule& each) { return each.isFault; };
    rules_.erase(std::remove_if(rules_.begin(), rules_.end(), isFault), rules_.end());
}

template <typename Condition>
std::optional<Rule> Rules::Take(Condition condition)
{
    std::optional<Rule> taken;
    for (Rule& rule : rules_) {
        if (!condition(rule) || ++rule.seen <= rule.skip || taken ||
            (rule.times != 0 && rule.used == rule.times)) {
            continue;
        }
        ++rule.used;
        if (rule.chance == 1 || std::uniform_real_distribution<>()(random_) < rule.chance) {
            taken = rule;
        }
    }
    return taken;
}

std::optional<Rule> Rules::TakeCall(const std::string& method, GVariant* arguments)
{
    return Take([&](const Rule& rule) {
        return rule.when == Rule::When::kCall && (rule.method == method || IsForAll(rule)) &&
               std::all_of(rule.arguments.begin(), rule.arguments.end(),
                           [&](const auto& each) { return Matches(each, arguments); });
    });
}

std::optional<Rule> Rules::TakeOut(Line line, const Bytes& bytes)
{
    return Take([&](const Rule& rule) {
        return rule.when == Rule::When::kOut && rule.line == line &&
               rule.bytes.Matches(bytes.data(), bytes.size());
    });
}

}  // namespace fa::set
