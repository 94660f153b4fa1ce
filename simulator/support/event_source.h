// Event sources of the main loop, owned: each ends with its owner.
#pragma once

#include <glib.h>

#include <functional>
#include <list>

namespace fa::set
{

// One source at a time. Its function may stop or start it again, and end its owner.
class EventSource
{
public:
    using Function = std::function<void()>;

    EventSource() = default;
    ~EventSource() { Stop(); }
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;

    // Calls the function once, so much later, in place of what was started before.
    void StartTimer(guint milliseconds, Function function, int priority = G_PRIORITY_DEFAULT);

    // Calls the function each time that the descriptor is ready.
    void StartWatch(int descriptor, GIOCondition condition, Function function);

    void Stop();
    bool IsActive() const { return id_ != 0; }

private:
    struct Callback;

    guint id_ = 0;
};

// Any number of functions to be called once, each at a time of its own.
class Timers
{
public:
    void Start(guint milliseconds, EventSource::Function function);

private:
    std::list<EventSource> sources_;
};

}  // namespace fa::set
