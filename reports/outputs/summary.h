// The two forms of a summary.
#pragma once

#include <string>
#include <vector>

#include "statistics/summary.h"

namespace fa
{

// For a terminal of 80 columns. `by`: the key of the groups; empty for none.
std::string SummaryText(const Summary& summary, const std::string& by, std::size_t refused);

// One JSON object.
std::string SummaryJson(const Summary& summary, const std::string& by,
                        const std::vector<std::string>& refused);

}  // namespace fa
