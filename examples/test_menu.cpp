// A console for trying commands by hand: the three test dialogues in one menu, as a set's debug
// menu offers them.
#include <fa_api/automation_api.h>
#include <fa_platform/debug_menu.h>

#include <cstdio>
#include <cstring>

namespace
{

constexpr int kChannel = 1;
constexpr int kExit = 99;

struct Dialogue {
    const char* title;
    int (*run)(void);
};

constexpr Dialogue kDialogues[] = {
    {"Send a command: op code and message code", input_packet_data},
    {"Send a command with data", input_multiple_packet_data},
    {"IR blaster", input_ir_blaster},
};
constexpr int kCount = sizeof(kDialogues) / sizeof(kDialogues[0]);

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 1) {
        const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        std::fputs(
            "usage: fa-test-menu [--help]\n\n"
            "Asks on the terminal for factory commands and sends them to the automation service\n"
            "on the system bus. Without a set:\n"
            "  fa-set-simulator run -- fa-test-menu\n\n"
            "  -h, --help  print this text\n\n"
            "Exit status: 0 after Exit (99) or the end of the input; 2 for a wrong command line.\n",
            help ? stdout : stderr);
        return help ? 0 : 2;
    }
    int choice = 0;
    while (choice != kExit) {
        for (int number = 1; number <= kCount; ++number) {
            menu_print(kChannel, "%2d << : %s\n", number, kDialogues[number - 1].title);
        }
        menu_print(kChannel, "%d << : Exit\nPlease Select a menu >> ", kExit);
        choice = waitkeyresponse();
        if (choice >= 1 && choice <= kCount) {
            kDialogues[choice - 1].run();
        }
    }
}
