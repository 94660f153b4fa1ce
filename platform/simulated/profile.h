// The profile that the simulated platform answers from.
#pragma once

#include <optional>
#include <string>

namespace fa_platform
{

// Tells the observer of a query that is about to be answered.
void Announce(const std::string& query);

// The text of an entry, read each time; nothing where it is missing.
std::optional<std::string> FindText(const char* group, const std::string& key);

// The same as a number, in decimal or, with 0x, in hexadecimal. Nothing where it is no number of 32
// bits.
std::optional<long long> FindNumber(const char* group, const std::string& key);

// The same as true or false.
std::optional<bool> FindFlag(const char* group, const std::string& key);

}  // namespace fa_platform
