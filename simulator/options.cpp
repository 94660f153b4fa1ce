#include "options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace fa::set
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
    "  fa-set-simulator fault clear                   change a running set\n"
    "  fa-set-simulator capture FILE                  record a real set, from its bus";

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
    "Exit status: 0, 2 for a wrong command line, 1 for any other failure, 123 where a replay\n"
    "differs from its recording; of run, also 124 after --timeout, and the command's own: 128+N "
    "if\n"
    "signal N ended it, 126 if it cannot be executed, 127 if it is not found.";

// The priorities of the platform log, from the least important.
constexpr char kPriorities[] = "VDIWEF";

constexpr gint kNotGiven = G_MININT;  // of an option with a number

std::vector<std::string> ToStrings(char** texts)
{
    std::vector<std::string> strings;
    for (; texts != nullptr && *texts != nullptr; ++texts) {
        strings.emplace_back(*texts);
    }
    return strings;
}

// Empty where the option is not given; given, it names something.
std::string ToPath(const char* option, const char* path)
{
    if (path != nullptr && *path == '\0') {
        throw UsageError(std::string(option) + " needs a path");
    }
    return path != nullptr ? path : "";
}

void CheckRange(const char* option, double number, double min, double max)
{
    if (!(number >= min && number <= max)) {
        g_autofree char* text = g_strdup_printf("%s takes %.9g to %.9g", option, min, max);
        throw UsageError(text);
    }
}

std::filesystem::path Normalized(const std::string& path)
{
    return std::filesystem::absolute(path).lexically_normal();
}

void ReadLink(const std::string& text, StateOptions& set)
{
    const auto equals = text.find('=');
    const std::optional<Line> line = FindLineNamed(text.substr(0, equals));
    if (!line || equals == std::string::npos || equals + 1 == text.size()) {
        throw UsageError("--line takes uart, ss, rjp or ep with =PATH, not \"" + text + "\"");
    }
    const std::string path = text.substr(equals + 1);
    for (Line other = 0; other < set.links.size(); ++other) {
        if (other != *line && !set.links[other].empty() &&
            Normalized(set.links[other]) == Normalized(path)) {
            throw UsageError("--line: two lines cannot both be " + path);
        }
    }
    set.links[*line] = path;
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

struct ModeRow {
    const char* word;
    Mode mode;
};
constexpr ModeRow kModes[] = {
    {"run", Mode::kRun}, {"fault", Mode::kFault}, {"capture", Mode::kCapture}};

Mode FindMode(const std::string& word)
{
    const auto* const found = std::find_if(std::begin(kModes), std::end(kModes),
                                           [&](const ModeRow& row) { return word == row.word; });
    return found != std::end(kModes) ? found->mode : Mode::kServe;
}

Mode TakeMode(int& argc, char** argv)
{
    const Mode mode = FindMode(argc > 1 ? argv[1] : "");
    if (mode != Mode::kServe) {
        std::copy(argv + 2, argv + argc + 1, argv + 1);
        --argc;
    }
    return mode;
}

void CheckWords(const Options& options)
{
    if (options.mode == Mode::kServe && !options.words.empty()) {
        const std::string& word = options.words[0];
        throw UsageError(FindMode(word) != Mode::kServe
                             ? "the word " + word + " comes first, before all options"
                             : "unknown word \"" + word + "\"");
    }
    if (options.mode == Mode::kRun && options.words.empty()) {
        throw UsageError("run needs a command");
    }
    if (options.mode == Mode::kCapture && (options.words.size() != 1 || options.words[0].empty())) {
        throw UsageError("capture needs one file");
    }
}

}  // namespace

Options ReadOptions(int argc, char** argv)
{
    g_autofree char* profile = nullptr;
    g_autofree char* record = nullptr;
    g_autofree char* scenario = nullptr;
    g_autofree char* replay = nullptr;
    g_autofree char* speed = nullptr;
    g_autofree char* seed = nullptr;
    g_autofree char* logFolder = nullptr;
    g_autofree char* usbFolder = nullptr;
    g_autofree char* log = nullptr;
    g_autofree char* priority = nullptr;
    g_auto(GStrv) lines = nullptr;
    g_auto(GStrv) faults = nullptr;
    g_autofree char* bus = nullptr;
    gint gap = 10;
    gdouble timeout = kNotGiven;
    gint replyTimeout = kNotGiven;
    gboolean quiet = FALSE;
    gboolean version = FALSE;
    const GOptionEntry setEntries[] = {
        {"profile", 'p', 0, G_OPTION_ARG_FILENAME, &profile,
         "The set's profile, changed by commands (default: $FA_PLATFORM_PROFILE); run uses a copy, "
         "of the sample profile where none is named",
         "FILE"},
        {"line", 'l', 0, G_OPTION_ARG_FILENAME_ARRAY, &lines,
         "Make a link to the line uart, ss, rjp or ep", "NAME=PATH"},
        {"log-dir", 0, 0, G_OPTION_ARG_FILENAME, &logFolder,
         "The folder with the set's logs; run makes one where none is named", "DIR"},
        {"usb-dir", 0, 0, G_OPTION_ARG_FILENAME, &usbFolder,
         "The folder that stands for the USB storage; run makes one where none is named", "DIR"},
        {"gap", 0, 0, G_OPTION_ARG_INT, &gap,
         "The silence that ends a packet on a line (default: 10)", "MS"},
        {"fault", 'f', 0, G_OPTION_ARG_STRING_ARRAY, &faults, "Begin with a fault", "WORDS"},
        {"scenario", 's', 0, G_OPTION_ARG_FILENAME, &scenario, "Go by the rules in the file",
         "FILE"},
        {"seed", 0, 0, G_OPTION_ARG_STRING, &seed, "What the rules' chance begins with", "NUMBER"},
        {"record", 'r', 0, G_OPTION_ARG_FILENAME, &record,
         "Write what happens, a line of JSON each, into a new file", "FILE"},
        {"replay", 0, 0, G_OPTION_ARG_FILENAME, &replay,
         "Answer and announce what the recording says", "FILE"},
        {"speed", 0, 0, G_OPTION_ARG_STRING, &speed,
         "Of a replay: fast (the default), or real for the times of the recording", "SPEED"},
        {"bus", 0, 0, G_OPTION_ARG_STRING, &bus, "run: use this bus in place of a private one",
         "ADDRESS"},
        {"timeout", 0, 0, G_OPTION_ARG_DOUBLE, &timeout, "run: end the command after so long",
         "SECONDS"},
        {"reply-timeout", 0, 0, G_OPTION_ARG_INT, &replyTimeout,
         "run: a call fails that has no answer after so long", "MS"},
        {"log", 0, 0, G_OPTION_ARG_FILENAME, &log,
         "run: write the command's platform log into a new file instead of standard error", "FILE"},
        {"log-priority", 0, 0, G_OPTION_ARG_STRING, &priority,
         "run: log from this priority on, V (the default), D, I, W, E or F", "LETTER"},
        {},
    };
    const GOptionEntry entries[] = {
        {"quiet", 'q', 0, G_OPTION_ARG_NONE, &quiet, "Print nothing but what goes wrong", nullptr},
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", nullptr},
        {},
    };
    Options options;
    options.mode = TakeMode(argc, argv);

    g_autoptr(GOptionContext) context =
        g_option_context_new("[run | fault | capture] [-- COMMAND...]");
    g_option_context_set_summary(context, kSummary);
    g_option_context_set_description(context, kDescription);
    if (options.mode == Mode::kServe || options.mode == Mode::kRun) {
        g_option_context_add_main_entries(context, setEntries, nullptr);
    }
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
    SetQuiet(quiet != FALSE);

    ServiceOptions& service = options.service;
    service.set.profile = ToPath("--profile", profile);
    if (profile == nullptr && g_getenv("FA_PLATFORM_PROFILE") != nullptr) {
        service.set.profile = g_getenv("FA_PLATFORM_PROFILE");
    }
    service.set.logFolder = ToPath("--log-dir", logFolder);
    service.set.usbFolder = ToPath("--usb-dir", usbFolder);
    CheckRange("--gap", gap, 0, 10'000);
    service.set.gapMs = static_cast<guint>(gap);
    for (const std::string& line : ToStrings(lines)) {
        ReadLink(line, service.set);
    }
    for (const std::string& fault : ToStrings(faults)) {
        service.faults.push_back(ReadFaultOption(fault));
    }
    service.scenario = ToPath("--scenario", scenario);
    service.record = ToPath("--record", record);
    service.replay = ToPath("--replay", replay);
    service.set.played = replay != nullptr;
    if (replay != nullptr && (scenario != nullptr || faults != nullptr)) {
        throw UsageError("--replay goes by its recording alone, without --fault and --scenario");
    }
    std::error_code missing;
    if (std::filesystem::equivalent(service.record, service.replay, missing)) {
        throw UsageError("--record would write over the recording of --replay");
    }
    const std::string pace = speed != nullptr ? speed : "fast";
    if ((pace != "fast" && pace != "real") || (speed != nullptr && replay == nullptr)) {
        throw UsageError("--speed is fast or real, of a --replay");
    }
    service.speed = pace == "real" ? Replay::Speed::kReal : Replay::Speed::kFast;
    if (seed != nullptr) {
        guint64 number = 0;
        if (!g_ascii_string_to_unsigned(seed, 10, 0, G_MAXUINT32, &number, nullptr)) {
            throw UsageError("--seed takes a number of 32 bits");
        }
        service.seed = static_cast<guint32>(number);
    }

    if (options.mode == Mode::kServe &&
        (bus != nullptr || timeout != kNotGiven || replyTimeout != kNotGiven || log != nullptr ||
         priority != nullptr)) {
        throw UsageError(
            "--bus, --timeout, --reply-timeout, --log and --log-priority are options of run");
    }
    if (bus != nullptr && *bus == '\0') {
        throw UsageError("--bus needs an address");
    }
    options.run.bus = bus != nullptr ? bus : "";
    if (timeout != kNotGiven) {
        CheckRange("--timeout", timeout, 0.001, 1'000'000);
        options.run.timeoutMs = static_cast<guint>(timeout * 1000);
    }
    if (replyTimeout != kNotGiven) {
        CheckRange("--reply-timeout", replyTimeout, 1, 1'000'000);
        options.run.replyTimeoutMs = static_cast<guint>(replyTimeout);
    }
    options.run.log = ToPath("--log", log);
    options.run.logPriority = priority != nullptr ? priority : "";
    if (priority != nullptr &&
        (options.run.logPriority.size() != 1 || std::strchr(kPriorities, priority[0]) == nullptr)) {
        throw UsageError("--log-priority takes one of the letters " + std::string(kPriorities));
    }

    options.words = ToStrings(argv + 1);
    if (!options.words.empty() && options.words[0] == "--") {
        options.words.erase(options.words.begin());
    }
    CheckWords(options);
    options.run.command = options.words;
    return options;
}

}  // namespace fa::set
