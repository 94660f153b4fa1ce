// The console dialogues by which an engineer sends commands by hand.
#include <fa_api/automation_api.h>
#include <fa_platform/debug_menu.h>
#include <stdio_ext.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{

constexpr char kSeparator[] = "====================================\n";
constexpr char kReleaseMarker[] = "/etc/release";
constexpr int kMenuChannel = 1;
constexpr int kExitChoice = 99;
constexpr unsigned int kExitCode = 0x99;  // 99, as the code prompts read it
constexpr int kMaxDataBytes = 31;

enum class Entry { kNumber, kRefused, kExit };

// Shows the refusal where this is a release image.
bool IsReleaseImage()
{
    FILE* marker = std::fopen(kReleaseMarker, "r");
    if (marker == nullptr) {
        return false;
    }
    menu_print(kMenuChannel, "Release image is NOT SUPPORT! \n");
    std::fclose(marker);
    return true;
}

void DropRestOfLine()
{
    int character = std::getchar();
    while (character != '\n' && character != EOF) {
        character = std::getchar();
    }
}

// Discards what is typed ahead at a terminal, the rest of the line in progress included. In a pipe
// or a file nothing is typed ahead: the lines that follow are a script's next entries and stay, and
// only the rest of a line that has been read in part is dropped.
void DiscardPendingInput(bool insideLine)
{
    const int input = fileno(stdin);
    if (isatty(input) != 0) {
        __fpurge(stdin);
        tcflush(input, TCIFLUSH);
    } else if (insideLine) {
        DropRestOfLine();
    }
}

// Asks for a code. A number below 0 or of more than 32 bits is refused, because cutting it would
// make another code of it. The end of input counts as an exit entry, and is forgotten: at a
// terminal the next dialogue can read again.
Entry ReadCode(const char* prompt, unsigned int& code)
{
    std::printf("%s", prompt);
    std::fflush(stdout);
    char minus[2] = {};
    unsigned long long number = 0;
    int converted = std::scanf(" %1[-]", minus);
    if (converted == 0) {
        converted = std::scanf("%llx", &number);
    }
    if (converted == EOF) {
        std::clearerr(stdin);
        return Entry::kExit;
    }
    if (converted != 1 || minus[0] != '\0' || number > std::numeric_limits<unsigned int>::max()) {
        std::printf("Input Data type ERROR! \n");
        return Entry::kRefused;
    }
    code = static_cast<unsigned int>(number);
    return code == kExitCode ? Entry::kExit : Entry::kNumber;
}

constexpr char kOpCodePrompt[] = "Input The op Code(99=Exit): 0x";
constexpr char kMessageCodePrompt[] = "Input The msg Code(99=Exit): 0x";

bool IsSpace(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// Whether the character at `position`, which is not the first, begins a token.
bool BeginsToken(const char* text, std::size_t position)
{
    const char next = text[position + 1];
    return !IsSpace(text[position]) && next != '\0' &&
           (!IsSpace(next) || IsSpace(text[position - 1]));
}

}  // namespace

int input_packet_data(void)
{
    if (IsReleaseImage()) {
        return 0;
    }
    menu_print(kMenuChannel, "%s", kSeparator);
    menu_print(kMenuChannel, " Input the Packet Data\n");
    menu_print(kMenuChannel, "%s", kSeparator);

    unsigned int opCode = 0;
    unsigned int messageCode = 0;
    bool insideLine = false;
    while (true) {
        DiscardPendingInput(insideLine);
        insideLine = true;
        Entry entry = ReadCode(kOpCodePrompt, opCode);
        if (entry == Entry::kNumber) {
            DiscardPendingInput(insideLine);
            entry = ReadCode(kMessageCodePrompt, messageCode);
        }
        if (entry == Entry::kExit) {
            return 0;
        }
        if (entry == Entry::kRefused) {
            continue;
        }
        std::printf("OP Code is 0x%x \n", opCode);
        std::printf("msg Code is 0x%x \n", messageCode);
        const int result =
            automation_execute_command(static_cast<int>(opCode), static_cast<int>(messageCode));
        std::printf("ExecuteCommand %d\n", result);
    }
}

int input_multiple_packet_data(void)
{
    if (IsReleaseImage()) {
        return 0;
    }
    while (true) {
        unsigned int opCode = 0;
        unsigned int messageCode = 0;
        char line[100] = {};
        unsigned char msgArr[kMaxDataBytes + 1] = {};  // ends with a zero byte, however full

        Entry entry = ReadCode(kOpCodePrompt, opCode);
        if (entry == Entry::kNumber) {
            entry = ReadCode(kMessageCodePrompt, messageCode);
        }
        if (entry == Entry::kExit) {
            return 0;
        }
        if (entry == Entry::kRefused) {
            DropRestOfLine();
            continue;
        }
        // Drops the line end after the message code. A blank or a carriage return there is dropped
        // in its place, and what is left of the line is then read as the data.
        std::getchar();

        std::printf("enter the message code(99=Exit) : 0x");
        std::fflush(stdout);
        if (std::fgets(line, sizeof(line), stdin) == nullptr) {
            std::printf("Input ERROR! \n");
            std::clearerr(stdin);
            return 0;
        }
        if (std::memchr(line, '\n', sizeof(line)) == nullptr) {
            DropRestOfLine();  // what is beyond 99 characters must not be read as the next codes
        }
        if (std::strncmp(line, "99", 2) == 0) {
            return 0;
        }
        const int count = ospd_char_to_hexadecimal(0, 0, 0, line, msgArr);
        ospd_print_array(msgArr);
        const int result = automation_execute_command_with_data(
            static_cast<int>(opCode), static_cast<int>(messageCode), msgArr,
            static_cast<unsigned char>(count));
        std::printf("ExecuteCommandWithData %d\n", result);
    }
}

int input_ir_blaster(void)
{
    int choice = 0;
    do {
        menu_print(kMenuChannel, "%s", kSeparator);
        menu_print(kMenuChannel, "This test does not support anything\n");
        menu_print(kMenuChannel, "%s", kSeparator);
        menu_print(kMenuChannel, "%d << : Exit\n", kExitChoice);
        menu_print(kMenuChannel, "%s", kSeparator);
        menu_print(kMenuChannel, "Please Select a menu >> ");
        choice = waitkeyresponse();
    } while (choice != kExitChoice);
    return choice;
}

int ospd_char_to_hexadecimal(int /*unused1*/, int /*unused2*/, int /*unused3*/, char* text,
                             unsigned char* out)
{
    if (text == nullptr || text[0] == '\0' || out == nullptr) {
        std::printf("char array is null\n");
        return 0;
    }
    int count = 0;
    for (std::size_t position = 0; text[position] != '\0' && count < kMaxDataBytes; ++position) {
        if (position != 0 && !BeginsToken(text, position)) {
            continue;
        }
        const auto value = static_cast<unsigned int>(std::strtol(text + position, nullptr, 16));
        out[count] = static_cast<unsigned char>(value);
        std::printf("bint is input[%d] : %x, msgArr[%d] : %x\n", static_cast<int>(position), value,
                    count, out[count]);
        ++count;
    }
    return count;
}

int ospd_print_array(unsigned char* array)
{
    if (array == nullptr || array[0] == 0) {
        std::printf("unsigned char array is empty\n");
        return 0;
    }
    int count = 0;
    for (; array[count] != 0; ++count) {
        std::printf("%dth element of list :%c\n", count, array[count]);
        std::fflush(stdout);
    }
    std::printf("whole data : %s\n", reinterpret_cast<const char*>(array));
    std::fflush(stdout);
    return count;
}
