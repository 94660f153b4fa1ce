// What happens at a set, one thing at a time, and its form as a line of JSON.
#pragma once

#include <optional>
#include <string>

#include "bus/contract.h"
#include "set/lines.h"
#include "support/json_lines.h"

namespace fa::set
{

struct Event {
    enum class Kind {
        kCall,
        kAnnouncement,
        kOut,     // bytes that go out of a line
        kIn,      // a packet that comes into a line; elsewhere the bytes, as they come
        kLeft,    // the service leaves the bus
        kJoined,  // it is there again
    };
    Kind kind = Kind::kCall;
    gint64 time = 0;  // microseconds since the start

    // Of a call. One without a result and an error gets no answer.
    std::string method;
    Variant arguments;
    Variant data;
    std::optional<int> result;
    std::string error;  // "NAME: message"
    std::string fault;  // what had a hand in the answer

    // Of all but calls.
    Line line = 0;
    Bytes bytes;
    std::string text;    // of an announcement
    bool again = false;  // of an announcement: the packet has been announced before
};

// The event without a line feed.
std::string ToJson(const Event& event);

// What a recording begins and ends with.
std::string FirstLine();
std::string LastLine(gint64 time);

// Throws Failure where the members are no event.
Event ReadEvent(Members& members);

// Throw Failure where the members are not those of the first line; true where of the last line.
void CheckFirstLine(Members& members);
bool IsLastLine(Members& members);

}  // namespace fa::set
