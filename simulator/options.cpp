#include "options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace fa
{

namespace
{

constexpr char kSummary[] =
    "A television set without a television: the factory automation service on the message bus "
    "that\n"
    "DBUS_SYSTEM_BUS_ADDRESS names, and its serial lines as pseudo-terminals.\n\n"
    "  fa-set-simulator [OPTION...]                   until SIGINT, SIGTERM, SIGHUP\n"
    "  fa-set-simulator run [OPTION...] -- COMMAND... for one command, with a bus of its own\n"
    "  fa-set-simulator fault TARGET KIND [VALUE] [times N]\n"
    "  fa-set-simulator fault clear                   change a running set";

constexpr char kDescription[] =
    "Faults:\n"
    "  METHOD result CODE      answers CODE; with 0 nothing is done\n"
    "  METHOD delay MS         answers late\n"
    "  METHOD error            answers with a D-Bus error\n"
    "  METHOD no-answer        never answers\n"
    "  Get...ProtocolData empty | long [COUNT]\n"
    "                          gives no bytes at all, or more than a record holds\n"
    "  ss|rjp|ep burst COUNT   announces so many packets at once\n"
    "  service leave MS        leaves the bus, and comes back after so long\n"
    "METHOD may be all. \"times N\" limits a fault to the next N calls.\n\n"
    "Exit status: 0, 2 for a wrong command line, 1 for any other failure; of run, the command's\n"
    "own, 128+N if signal N ended it, 126 if it cannot be executed, 127 if it is not found.";

std::vector<std::string> ToStrings(char** texts)
{
    std::vector<std::string> strings;
    for (; texts != nullptr && *texts != nullptr; ++texts) {
        strings.emplace_back(*texts);
    }
    return strings;
}

std::string ToString(const char* text)
{
    return text != nullptr ? text : "";
}

std::filesystem::path Normalized(const std::string& path)
{
    return std::filesystem::absolute(path).lexically_normal();
}

void ReadLink(const std::string& text, Options& options)
{
    const auto equals = text.find('=');
    const std::string name = text.substr(0, equals);
    if (std::find(std::begin(kLines), std::end(kLines), name) == std::end(kLines) ||
        equals == std::string::npos || equals + 1 == text.size()) {
        throw UsageError("--line takes uart, ss, rjp or ep with =PATH, not \"" + text + "\"");
    }
    const std::string path = text.substr(equals + 1);
    for (const auto& [other, otherPath] : options.links) {
        if (other != name && Normalized(otherPath) == Normalized(path)) {
            throw UsageError("--line: two lines cannot both be " + path);
        }
    }
    options.links[name] = path;
}

FaultRequest ReadFaultOption(const std::string& text)
{
    g_auto(GStrv) words = nullptr;
    g_autoptr(GError) error = nullptr;
    if (!g_shell_parse_argv(text.c_str(), nullptr, &words, &error)) {
        throw UsageError("--fault \"" + text + "\": " + error->message);
    }
    return ReadFault(ToStrings(words));
}

bool IsMode(const std::string& word)
{
    return word == "run" || word == "fault";
}

Mode TakeMode(int& argc, char** argv)
{
    const std::string word = argc > 1 ? argv[1] : "";
    if (!IsMode(word)) {
        return Mode::kServe;
    }
    std::copy(argv + 2, argv + argc + 1, argv + 1);
    --argc;
    return word == "run" ? Mode::kRun : Mode::kFault;
}

}  // namespace

Options ReadOptions(int argc, char** argv)
{
    g_autofree char* profile = nullptr;
    g_autofree char* record = nullptr;
    g_autofree char* logFolder = nullptr;
    g_autofree char* usbFolder = nullptr;
    g_auto(GStrv) lines = nullptr;
    g_auto(GStrv) faults = nullptr;
    gint gap = 10;
    gboolean quiet = FALSE;
    gboolean version = FALSE;
    const GOptionEntry entries[] = {
        {"profile", 'p', 0, G_OPTION_ARG_FILENAME, &profile,
         "The set's profile, changed by commands (default: $FA_PLATFORM_PROFILE); run uses a copy, "
         "of the sample profile where none is named",
         "FILE"},
        {"line", 'l', 0, G_OPTION_ARG_FILENAME_ARRAY, &lines,
         "Make a link to the line uart, ss, rjp or ep", "NAME=PATH"},
        {"record", 'r', 0, G_OPTION_ARG_FILENAME, &record,
         "Write each call as a line of JSON, into a new file", "FILE"},
        {"log-dir", 0, 0, G_OPTION_ARG_FILENAME, &logFolder,
         "The folder with the set's logs; run makes one where none is named", "DIR"},
        {"usb-dir", 0, 0, G_OPTION_ARG_FILENAME, &usbFolder,
         "The folder that stands for the USB storage; run makes one where none is named", "DIR"},
        {"gap", 0, 0, G_OPTION_ARG_INT, &gap,
         "The silence that ends a packet on a line (default: 10)", "MS"},
        {"fault", 'f', 0, G_OPTION_ARG_STRING_ARRAY, &faults, "Begin with a fault", "WORDS"},
        {"quiet", 'q', 0, G_OPTION_ARG_NONE, &quiet, "Print nothing but what goes wrong", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", nullptr},
        {},
    };
    Options options;
    options.mode = TakeMode(argc, argv);

    g_autoptr(GOptionContext) context = g_option_context_new("[run | fault] [-- COMMAND...]");
    g_option_context_set_summary(context, kSummary);
    g_option_context_set_description(context, kDescription);
    g_option_context_add_main_entries(context, entries, nullptr);
    // What follows a command's name, and a negative value of a fault, are no options of ours.
    g_option_context_set_strict_posix(context, options.mode != Mode::kServe);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        throw UsageError(error->message);
    }
    if (version) {
        std::printf("fa-set-simulator %s\n", FA_API_VERSION);
        std::exit(EXIT_SUCCESS);
    }
    if (gap < 0 || gap > 10'000) {
        throw UsageError("--gap takes 0 to 10000 milliseconds");
    }
    SetQuiet(quiet != FALSE);
    options.profile = ToString(profile != nullptr ? profile : g_getenv("FA_PLATFORM_PROFILE"));
    options.record = ToString(record);
    options.logFolder = ToString(logFolder);
    options.usbFolder = ToString(usbFolder);
    options.gapMs = static_cast<guint>(gap);
    for (const std::string& line : ToStrings(lines)) {
        ReadLink(line, options);
    }
    for (const std::string& fault : ToStrings(faults)) {
        options.faults.push_back(ReadFaultOption(fault));
    }
    options.words = ToStrings(argv + 1);
    if (!options.words.empty() && options.words[0] == "--") {
        options.words.erase(options.words.begin());
    }
    if (options.mode == Mode::kServe && !options.words.empty()) {
        const std::string& word = options.words[0];
        throw UsageError(IsMode(word) ? "the word " + word + " comes first, before all options"
                                      : "unknown word \"" + word + "\"");
    }
    if (options.mode == Mode::kRun && options.words.empty()) {
        throw UsageError("run needs a command");
    }
    return options;
}

}  // namespace fa
