#include "outputs/summary.h"

#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "statistics/collector.h"

namespace fa
{

ExitStatus Summarize(const Options& options)
{
    std::vector<std::string> refused;
    const Summary summary =
        Collect(ReportFiles(options.inputs, options.output), options.by, refused);
    WriteWhole(options.output, options.json ? SummaryJson(summary, options.by, refused)
                                            : SummaryText(summary, options.by, refused.size()));
    PrintRefused(refused);
    return refused.empty() ? kAllPassed : kNotAllRead;
}

}  // namespace fa
