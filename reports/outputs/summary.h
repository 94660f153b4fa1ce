// The two forms of a summary.
#pragma once

#include <string>
#include <vector>

#include "outputs/json_writer.h"
#include "statistics/summary.h"

namespace fa
{

// For a terminal of 80 columns. `by`: the key of the groups; empty for none.
std::string SummaryText(const Summary& summary, const std::string& by, std::size_t refused);

// The members of the JSON form, into the object that the writer is in.
void AddSummary(JsonWriter& writer, const Summary& summary, const std::string& by,
                const std::vector<std::string>& refused);

// One JSON object.
std::string SummaryJson(const Summary& summary, const std::string& by,
                        const std::vector<std::string>& refused);

}  // namespace fa
