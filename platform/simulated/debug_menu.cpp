// The debug menu console, on standard input and output.
#include <fa_platform/debug_menu.h>

#include <cstdarg>
#include <cstdio>

int menu_print(int, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int written = std::vprintf(format, values);
    va_end(values);
    std::fflush(stdout);
    return written;
}

int waitkeyresponse(void)
{
    constexpr int kExit = 99;
    int choice = 0;
    const int read = std::scanf("%d", &choice);
    if (read == 1) {
        return choice;
    }
    if (read == 0) {
        // Not a number: nothing of the line counts, and no choice has the number -1.
        int dropped = 0;
        do {
            dropped = std::getchar();
        } while (dropped != '\n' && dropped != EOF);
        return dropped == EOF ? kExit : -1;
    }
    return kExit;
}
