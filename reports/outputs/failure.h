// Why an item failed, as far as its report tells.
#pragma once

#include <string>
#include <vector>

#include "reader/report_reader.h"

namespace fa
{

// A line each, valid text without line feeds: the measured values and their limit first, then
// sub-items, retries, data, failure note and detail. Empty where the report tells nothing.
std::vector<std::string> FailureLines(const Item& item, ReportMode mode);

}  // namespace fa
