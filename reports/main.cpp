// fa-report: reads inspection reports, for people and programs.
#include <clocale>
#include <cstdio>
#include <exception>

#include "options.h"
#include "reader/text.h"

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");  // the character set that --help is printed in
    try {
        const fa::Options options = fa::ReadOptions(argc, argv);
        return options.command->run(options);
    } catch (const fa::UsageError& error) {
        std::fprintf(stderr, "fa-report: %s (--help tells more)\n",
                     fa::ValidText(error.what()).c_str());
        return fa::kWrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fa-report: %s\n", fa::ValidText(error.what()).c_str());
        return fa::kNotAllRead;
    }
}
