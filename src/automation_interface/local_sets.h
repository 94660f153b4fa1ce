// The names of the set's local sets, its regional configurations.
#pragma once

namespace fa
{

constexpr unsigned int kLocalSetCount = 97;

// Stands in the table where a number has no local set.
constexpr char kNoLocalSet[] = "LOCALSET_ERR";

extern const char* const kLocalSets[kLocalSetCount];

}  // namespace fa
