// Bounded reads of a caller's record: the only way in which the renderers touch its counts and
// texts, whatever these hold.
#pragma once

#include <fa_api/PelkoRecords.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace fa
{

// A text field as far as its NUL or its end.
template <typename Char, std::size_t N>
std::string_view TextField(const Char (&field)[N])
{
    static_assert(sizeof(Char) == 1, "texts are bytes");
    const char* text = reinterpret_cast<const char*>(field);
    return {text, strnlen(text, N)};
}

// A count of elements of `field`, between 0 and their number.
template <typename Element, std::size_t N>
int CountIn(const Element (&)[N], long long count)
{
    return static_cast<int>(std::clamp(count, 0LL, static_cast<long long>(N)));
}

template <typename Element, std::size_t N>
bool HoldsIndex(const Element (&)[N], int index)
{
    return index >= 0 && static_cast<std::size_t>(index) < N;
}

// As many result values as the record claims, which may be more than it holds.
inline long long ClaimedValues(const PelkoItem_s& item)
{
    return static_cast<long long>(item.iMeasureCount) + item.iExtraCount;
}

}  // namespace fa
