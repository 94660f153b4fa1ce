#include "options.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "outputs/outputs.h"

namespace fa
{

namespace
{

constexpr char kSummary[] =
    "Reads inspection reports of all three modes: files, folders with all that is in them, and\n"
    "standard input (-).\n\n"
    "  fa-report show FILE...     each run: the outcome first, then what failed and why\n"
    "  fa-report summary FILE...  yield, what fails, what is retried, what drifts\n"
    "  fa-report page FILE...     the same as a page with charts, for a browser, offline\n"
    "  fa-report junit FILE...    JUnit XML, for a CI server\n"
    "  fa-report table FILE...    one row for each measured value";

constexpr char kDescription[] =
    "Exit status: 0 if all was read and all runs passed, 1 if a run did not pass (of show and\n"
    "junit only),\n"
    "2 for a wrong command line, 3 if something could not be read or written.";

constexpr Command kCommands[] = {
    {"show", Show, " output "},
    {"summary", Summarize, " output json by "},
    {"page", Page, " output by "},
    {"junit", Junit, " output "},
    {"table", Table, " output format partition-by "},
};

std::string ToString(const char* text)
{
    return text != nullptr ? text : "";
}

const Command& TakeCommand(int& argc, char** argv)
{
    const auto* const found =
        std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& command) {
            return argc > 1 && std::strcmp(argv[1], command.name) == 0;
        });
    if (found == std::end(kCommands)) {
        throw UsageError(argc > 1 ? "unknown command \"" + std::string(argv[1]) + "\""
                                  : "a command is missing");
    }
    std::copy(argv + 2, argv + argc + 1, argv + 1);
    --argc;
    return *found;
}

void CheckTaken(const Command& command, const char* name, bool given)
{
    const std::string word = std::string(" ") + name + " ";
    if (given && std::strstr(command.options, word.c_str()) == nullptr) {
        throw UsageError(std::string(command.name) + " takes no --" + name);
    }
}

}  // namespace

Options ReadOptions(int argc, char** argv)
{
    g_autofree char* output = nullptr;
    g_autofree char* by = nullptr;
    g_autofree char* format = nullptr;
    g_autofree char* partition = nullptr;
    gboolean json = FALSE;
    gboolean version = FALSE;
    const GOptionEntry entries[] = {
        {"output", 'o', 0, G_OPTION_ARG_FILENAME, &output,
         "Write there (default: standard output); of table with --partition-by a folder", "FILE"},
        {"json", 'j', 0, G_OPTION_ARG_NONE, &json, "summary: print JSON", nullptr},
        {"by", 'b', 0, G_OPTION_ARG_STRING, &by,
         "summary, page: the yield for each value of a key of the information section, such as sm "
         "(of page by default mm)",
         "KEY"},
        {"format", 'f', 0, G_OPTION_ARG_STRING, &format,
         "table: csv (default) or jsonl, a JSON object on each line", "FORMAT"},
        {"partition-by", 'p', 0, G_OPTION_ARG_STRING, &partition,
         "table: a file for each day, in folders day=YYYY-MM-DD of the --output folder", "day"},
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", nullptr},
        {},
    };
    g_autoptr(GOptionContext) context = g_option_context_new("COMMAND FILE...");
    g_option_context_set_summary(context, kSummary);
    g_option_context_set_description(context, kDescription);
    g_option_context_add_main_entries(context, entries, nullptr);
    Options options;
    const bool hasCommand = argc > 1 && argv[1][0] != '-';
    if (hasCommand) {
        options.command = &TakeCommand(argc, argv);
    }
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        throw UsageError(error->message);
    }
    if (version) {
        std::printf("fa-report %s\n", FA_API_VERSION);
        std::exit(EXIT_SUCCESS);
    }
    if (!hasCommand) {
        options.command = &TakeCommand(argc, argv);
    }
    const Command& command = *options.command;
    CheckTaken(command, "output", output != nullptr);
    CheckTaken(command, "json", json != FALSE);
    CheckTaken(command, "by", by != nullptr);
    CheckTaken(command, "format", format != nullptr);
    CheckTaken(command, "partition-by", partition != nullptr);
    options.output = ToString(output);
    if (options.output == "-") {
        options.output.clear();
    }
    options.json = json != FALSE;
    options.by = ToString(by);
    options.format = format != nullptr ? format : "csv";
    options.partitionByDay = partition != nullptr;
    if (options.format != "csv" && options.format != "jsonl") {
        throw UsageError("--format takes csv or jsonl");
    }
    if (options.partitionByDay && ToString(partition) != "day") {
        throw UsageError("--partition-by takes day");
    }
    if (options.partitionByDay && options.output.empty()) {
        throw UsageError("--partition-by needs an --output folder");
    }
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") != 0) {
            options.inputs.emplace_back(argv[i]);
        }
    }
    if (options.inputs.empty()) {
        throw UsageError(std::string(command.name) +
                         " needs files or folders (- for standard input)");
    }
    if (std::count(options.inputs.begin(), options.inputs.end(), "-") > 1) {
        throw UsageError("standard input can be read only once");
    }
    std::error_code ignored;
    for (const std::string& input : options.inputs) {
        if (std::filesystem::equivalent(input, options.output, ignored)) {
            throw UsageError(input + " is read, so --output cannot be there");
        }
    }
    if (std::string begin; std::filesystem::is_regular_file(options.output, ignored) &&
                           std::getline(std::ifstream(options.output), begin) &&
                           begin == "[summary]") {
        throw UsageError(options.output + " is a report, so --output cannot be there");
    }
    options.progress = !options.output.empty() || isatty(STDOUT_FILENO) == 0;
    return options;
}

}  // namespace fa
