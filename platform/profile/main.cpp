// Prints the profile of the platform underneath.
#include <glib.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include "profile_text.h"

namespace
{

constexpr int kUsage = 2;
constexpr int kIncomplete = 3;

constexpr char kSummary[] =
    "Asks the platform underneath, a set's or the simulated one, for everything that the library\n"
    "asks it, and prints the answers as a profile:\n\n"
    "  fa-platform-profile >line3.ini                            on a set\n"
    "  fa-set-simulator run --profile line3.ini -- ./my_test     at a desk";

constexpr char kDescription[] =
    "Exit status: 0; 1 where the profile cannot be written, 2 for a wrong command line, 3 where "
    "the\n"
    "platform answers something that a profile cannot say: the profile is written, and standard\n"
    "error tells what it lacks.";

int Complain(const char* text)
{
    return std::fprintf(stderr, "fa-platform-profile: %s\n", text);
}

}  // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");  // the character set that --help is printed in
    gboolean version = FALSE;
    const GOptionEntry entries[] = {
        {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version", nullptr},
        {},
    };
    g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
    g_option_context_set_summary(context, kSummary);
    g_option_context_set_description(context, kDescription);
    g_option_context_add_main_entries(context, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error)) {
        Complain(error->message);
        return kUsage;
    }
    if (argc > 1) {
        Complain("no arguments are expected (--help tells more)");
        return kUsage;
    }
    if (version) {
        std::printf("fa-platform-profile %s\n", FA_API_VERSION);
        return EXIT_SUCCESS;
    }

    const fa::PlatformProfile profile = fa::AskPlatform();
    if (std::fputs(profile.text.c_str(), stdout) == EOF || std::fflush(stdout) == EOF) {
        Complain((std::string("cannot write the profile: ") + g_strerror(errno)).c_str());
        return EXIT_FAILURE;
    }
    for (const std::string& loss : profile.losses) {
        Complain(loss.c_str());
    }
    return profile.losses.empty() ? EXIT_SUCCESS : kIncomplete;
}
