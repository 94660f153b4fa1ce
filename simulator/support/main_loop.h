// The main loop of the program, and its end.
#pragma once

#include <glib.h>

#include <functional>

#include "support/event_source.h"
#include "support/signals.h"

namespace fa::set
{

class MainLoop
{
public:
    // Calls the function for each signal of those that end the program.
    explicit MainLoop(std::function<void(const Signal& signal)> onSignal)
    {
        signals_.StartWatch(SignalDescriptor(), G_IO_IN, [onSignal = std::move(onSignal)] {
            while (const std::optional<Signal> signal = TakeSignal()) {
                onSignal(*signal);
            }
        });
    }
    ~MainLoop() { g_main_loop_unref(loop_); }
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;

    // Runs until Quit(), and returns its status.
    int Run()
    {
        if (!quit_) {
            g_main_loop_run(loop_);
        }
        return status_;
    }

    void Quit(int status)
    {
        quit_ = true;
        status_ = status;
        g_main_loop_quit(loop_);
    }

private:
    GMainLoop* loop_ = g_main_loop_new(nullptr, FALSE);
    EventSource signals_;
    bool quit_ = false;
    int status_ = 0;
};

}  // namespace fa::set
