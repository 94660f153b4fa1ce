// The page: what the browser is given, in one file.
#pragma once

#include <string>
#include <vector>

#include "page/failing_runs.h"
#include "reader/report_files.h"
#include "statistics/summary.h"

namespace fa
{

// `files`: those that the runs came from. `by`: the key of the summary's groups.
std::string PageHtml(const Summary& summary, const FailingRuns& failing, const ReportFiles& files,
                     const std::string& by, const std::vector<std::string>& refused);

}  // namespace fa
