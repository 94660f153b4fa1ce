// The runs one by one: the outcome first, then what failed and why.
#include <algorithm>
#include <string>

#include "outputs/failure.h"
#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "outputs/terminal.h"
#include "outputs/words.h"
#include "reader/report_files.h"
#include "reader/text.h"

namespace fa
{

namespace
{

const char* Outcome(RunResult result)
{
    switch (result) {
        case RunResult::kPass:
            return "PASS";
        case RunResult::kFail:
            return "FAIL";
        case RunResult::kTimeout:
            return "TIMEOUT";
        case RunResult::kStop:
            return "STOP";
        case RunResult::kNone:
            break;
    }
    return "NO RESULT";
}

std::string Title(const Item& item)
{
    const std::string position = std::to_string(item.position);
    return std::string(3 - std::min<std::size_t>(position.size(), 3), '0') + position + " " +
           ValidText(item.name) + CodesText(item.codes);
}

std::string Failed(const Item& item, ReportMode mode)
{
    std::string text = "  " + Title(item) + "\n";
    for (const std::string& line : FailureLines(item, mode)) {
        text += "      " + line + "\n";
    }
    return text;
}

std::string RunText(const std::string& file, const Run& run)
{
    std::uint64_t counts[3] = {};
    std::string failed;
    std::string retried;
    std::string missing;
    for (const Item& item : run.items) {
        ++counts[static_cast<std::size_t>(item.result)];
        if (item.result == ItemResult::kFail) {
            failed += Failed(item, run.mode);
        } else if (item.result == ItemResult::kNone) {
            missing += "  " + Title(item) + "\n";
        } else if (item.retries > 0) {
            retried += "  " + Title(item) + ": " + std::to_string(item.retries) + "\n";
        }
    }
    const std::string serial = ValidText(run.SerialNumber());
    std::string text = Outcome(run.result);
    text += "  " + (serial.empty() ? "(no serial number)" : serial) + ", " + StartText(run) + ", " +
            ValidText(file) + "\n";
    text += std::to_string(counts[static_cast<std::size_t>(ItemResult::kPass)]) + " of " +
            Counted(run.items.size(), "item") + " passed; duration " +
            std::to_string(run.duration) + ", retries " + std::to_string(run.retries) + "\n";
    const auto add = [&](const std::string& title, const std::string& lines) {
        text += lines.empty() ? "" : "\n" + title + "\n" + lines;
    };
    add("Failed:", failed);
    add("Passed on a retry (with how many):", retried);
    add("Without a result:", missing);
    std::string information;
    for (const Information& line : run.information) {
        information += "  " + ValidText(line.key) + "=" + ValidText(JoinedLines(line.value)) + "\n";
    }
    add("Information:", information);
    return text;
}

}  // namespace

ExitStatus Show(const Options& options)
{
    const ReportFiles files(options.inputs, options.output);
    OutputFile output(options.output);
    bool allPassed = true;
    bool first = true;
    const std::vector<std::string> refused =
        ReadInOrder(files, options.progress, [&](const std::string& file, const Run& run) {
            output.Write((first ? "" : "\n\n") + RunText(file, run));
            allPassed = allPassed && run.result == RunResult::kPass;
            first = false;
        });
    output.Close();
    PrintRefused(refused);
    return !refused.empty() ? kNotAllRead : allPassed ? kAllPassed : kNotAllPassed;
}

}  // namespace fa
