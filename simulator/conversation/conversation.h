// The conversation with a set: what happens, in order, on file and in memory.
#pragma once

#include <deque>
#include <string>

#include "conversation/event.h"

namespace fa::set
{

class Conversation
{
public:
    // Writes into the file, where a path is given; what that holds stays until Begin(). Throws
    // Failure.
    explicit Conversation(std::string path);
    ~Conversation();
    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    void Begin();
    void End();

    // Microseconds since the start.
    gint64 Now() const { return g_get_monotonic_time() - start_; }

    // Takes an event that happens now, or at the time that it has. Returns the line of a call.
    const std::string& Add(Event event);
    void AddTimed(const Event& event);

    // The latest calls, oldest first, each as its line.
    const std::deque<std::string>& Calls() const { return calls_; }
    void ForgetCalls() { calls_.clear(); }

    // Why the file is incomplete; empty where it is not.
    const std::string& Shortfall() const { return shortfall_; }

private:
    void Write(const std::string& line);

    const std::string path_;
    const gint64 start_ = g_get_monotonic_time();
    std::string shortfall_;
    int file_ = -1;
    std::deque<std::string> calls_;
};

}  // namespace fa::set
