// The example console at a terminal, on the real simulated platform.
#include <fcntl.h>
#include <unistd.h>

#include "support/session.h"
#include "support/trace.h"

TEST(Examples, TheConsoleOffersItsDialogues)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    const auto console = [] {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);  // the platform log
        execl(FA_TEST_MENU, FA_TEST_MENU, nullptr);
        return 127;
    };
    const std::string session = Section(TEST_CONSOLE, "session");
    EXPECT_EQ(Play(kTerminal, console, session), 0);
    EXPECT_EQ(Play(kTerminal, console, session.substr(0, session.find('{')) + "{\4}"), 0);
}
