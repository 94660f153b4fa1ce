// All runs as one page for a browser.
#include <utility>

#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "page/failing_runs.h"
#include "page/page_html.h"
#include "statistics/collector.h"

namespace fa
{

ExitStatus Page(const Options& options)
{
    const std::string by = options.by.empty() ? "mm" : options.by;
    const ReportFiles files(options.inputs, options.output);
    std::vector<FailingRuns> failing(ReadingThreads(), FailingRuns(by));
    std::vector<std::string> refused;
    const Summary summary =
        Collect(files, by, refused, [&](std::size_t thread, RunOrder order, const Run& run) {
            failing[thread].Take(order, run);
        });
    for (std::size_t i = 1; i < failing.size(); ++i) {
        failing[0].Merge(std::move(failing[i]));
    }
    WriteWhole(options.output, PageHtml(summary, failing[0], files, by, refused));
    PrintRefused(refused);
    return refused.empty() ? kAllPassed : kNotAllRead;
}

}  // namespace fa
