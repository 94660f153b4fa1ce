// The end of a terminal.
#pragma once

#include <glib-unix.h>

#include <csignal>

namespace fa
{

// Handles a hang-up, unless whoever started us wants it ignored, as nohup does.
inline void OnHangUp(GSourceFunc handler, gpointer data)
{
    struct sigaction action {
    };
    if (sigaction(SIGHUP, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
        g_unix_signal_add(SIGHUP, handler, data);
    }
}

}  // namespace fa
