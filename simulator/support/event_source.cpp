#include "support/event_source.h"

#include <glib-unix.h>

#include <utility>

namespace fa::set
{

// GLib keeps it for as long as the function runs, whatever becomes of the source.
struct EventSource::Callback {
    EventSource* owner;
    Function function;

    static gboolean OnTimer(gpointer callback)
    {
        auto* self = static_cast<Callback*>(callback);
        self->owner->id_ = 0;
        self->function();
        return G_SOURCE_REMOVE;
    }
    static gboolean OnReady(gint, GIOCondition, gpointer callback)
    {
        static_cast<Callback*>(callback)->function();
        return G_SOURCE_CONTINUE;
    }
    static void Delete(gpointer callback) { delete static_cast<Callback*>(callback); }
};

void EventSource::StartTimer(guint milliseconds, Function function, int priority)
{
    Stop();
    id_ = g_timeout_add_full(priority, milliseconds, Callback::OnTimer,
                             new Callback{this, std::move(function)}, Callback::Delete);
}

void EventSource::StartWatch(int descriptor, GIOCondition condition, Function function)
{
    Stop();
    id_ = g_unix_fd_add_full(G_PRIORITY_DEFAULT, descriptor, condition, Callback::OnReady,
                             new Callback{this, std::move(function)}, Callback::Delete);
}

void EventSource::Stop()
{
    if (id_ != 0) {
        g_source_remove(std::exchange(id_, 0));
    }
}

void Timers::Start(guint milliseconds, EventSource::Function function)
{
    const auto source = sources_.emplace(sources_.end());
    source->StartTimer(milliseconds, [this, source, function = std::move(function)] {
        sources_.erase(source);
        function();
    });
}

}  // namespace fa::set
