#include "support/session.h"

#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cstdio>

#include "support/trace.h"

int Play(Input input, const std::function<int()>& program, const std::string& script)
{
    constexpr int kPatienceMs = 30000;
    termios lines{};
    lines.c_lflag = ICANON;
    lines.c_cc[VEOF] = 4;
    int ends[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
    int end = ends[0];
    const pid_t child = input == kStream ? fork() : forkpty(&end, nullptr, &lines, nullptr);
    if (child == 0) {
        dup2(input == kStream ? ends[1] : STDIN_FILENO, STDIN_FILENO);
        dup2(STDIN_FILENO, STDOUT_FILENO);
        closefrom(STDERR_FILENO + 1);
        std::setvbuf(stdin, nullptr, input == kUnbufferedTerminal ? _IONBF : _IOFBF, BUFSIZ);
        std::exit(program());
    }
    close(ends[1]);
    std::string seen;
    const auto look = [&](std::size_t length) {
        pollfd readable{end, POLLIN, 0};
        char c = 0;
        while (length-- > 0 && poll(&readable, 1, kPatienceMs) == 1 && read(end, &c, 1) == 1) {
            seen += c;
        }
    };
    std::istringstream rest(script);
    std::string shown;
    std::string typed;
    while (std::getline(rest, shown, '{') && std::getline(rest, typed, '}')) {
        look(shown.size());
        EXPECT_EQ(write(end, typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
        seen += "{" + typed + "}";
    }
    shutdown(end, SHUT_WR);
    look(100000);
    close(end);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(Same(script, seen));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
