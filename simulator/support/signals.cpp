#include "support/signals.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support/console.h"

namespace fa::set
{

namespace
{

int pipeEnds[2] = {-1, -1};

void OnSignal(int number, siginfo_t* info, void* /*context*/)
{
    const int error = errno;
    const auto byte = static_cast<unsigned char>(number * 2 + (info->si_code == SI_KERNEL ? 1 : 0));
    // A full pipe holds more signals than anybody needs.
    [[maybe_unused]] const ssize_t written = write(pipeEnds[1], &byte, 1);
    errno = error;
}

}  // namespace

void CatchSignals()
{
    if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw Failure(std::string("signals: ") + g_strerror(errno));
    }
    sigset_t ours;
    sigemptyset(&ours);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited {
        };
        sigaction(number, nullptr, &inherited);
        if (number != SIGHUP || inherited.sa_handler != SIG_IGN) {
            struct sigaction action {
            };
            action.sa_sigaction = OnSignal;
            action.sa_flags = SA_SIGINFO | SA_RESTART;
            sigaction(number, &action, nullptr);
        }
        sigaddset(&ours, number);
    }
    // An ignored SIGCHLD would take the exit statuses of our children away.
    std::signal(SIGCHLD, SIG_DFL);
    sigaddset(&ours, SIGCHLD);
    sigprocmask(SIG_UNBLOCK, &ours, nullptr);
}

int SignalDescriptor()
{
    return pipeEnds[0];
}

bool SignalWaits()
{
    pollfd signal{pipeEnds[0], POLLIN, 0};
    return poll(&signal, 1, 0) > 0;
}

std::optional<Signal> TakeSignal()
{
    unsigned char byte = 0;
    if (read(pipeEnds[0], &byte, 1) != 1) {
        return std::nullopt;
    }
    return Signal{byte / 2, byte % 2 != 0};
}

}  // namespace fa::set
