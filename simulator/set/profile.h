// The profile that the simulated platform answers from, and the state in it that commands change.
#pragma once

#include <optional>
#include <string>

#include "support/console.h"

namespace fa::set
{

// Throw Failure where the profile cannot be read and understood; or cannot be changed either.
void CheckProfile(const std::string& path);
void CheckProfileWritable(const std::string& path);

// The number of the local set of that name.
std::optional<unsigned int> FindLocalSet(const Bytes& name);

// Makes it the set's local set. Readers of the profile see the old text or the new one, never half
// of it. Throws Failure.
void StoreLocalSet(const std::string& profilePath, unsigned int number);

}  // namespace fa::set
