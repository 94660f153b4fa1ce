// The set itself: its lines with what waits on them, its profile, its logs.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "set/leave_watch.h"
#include "set/lines.h"
#include "set/packet_queue.h"
#include "set/serial_line.h"

namespace fa::set
{

struct StateOptions {
    std::string profile;                               // empty: none
    std::array<std::string, std::size(kLines)> links;  // empty: none
    std::string logFolder;                             // empty: none
    std::string usbFolder;                             // empty: none
    guint gapMs = 10;
    bool played = false;  // what goes out of the lines comes by Play() alone
};

class State
{
public:
    struct Owner {
        // What has come into a line, a packet where it has a protocol.
        std::function<void(Line line, const Bytes& bytes)> onArrival;
        std::function<void(Line line, const Bytes& packet, bool again)> announce;
        // Bytes that come into a line now: true where they are none of the set's business.
        std::function<bool(Line line, const Bytes& bytes)> refuse;
        std::function<void(Line line, const Bytes& bytes)> onSent;
    };

    // Throws Failure where the options name what cannot be used.
    State(const StateOptions& options, Owner owner);

    // Opens the lines. Throws Failure.
    void Open();

    // Each returns false where the set refuses.
    bool Send(Line line, const Bytes& bytes);
    bool StoreLocalSet(const Bytes& name);
    bool ChangeUartSpeed(speed_t speed);  // opens the UART where it is closed
    void CloseUart();
    bool ChangeSsPacketLength(int length);
    bool CopyLogs();

    // Sends for whom it may concern: nobody needs to read it.
    void Play(Line line, const Bytes& bytes) { ports_[line].line->Send(bytes); }

    // Null where the line has no protocol.
    PacketQueue* Queue(Line line) { return ports_[line].queue.get(); }
    void AnnounceAgain();

private:
    struct Port {
        std::unique_ptr<SerialLine> line;
        std::unique_ptr<PacketQueue> queue;
    };

    void Receive(Line line, const Bytes& bytes);

    const StateOptions options_;
    const Owner owner_;
    LeaveWatch leaveWatch_;
    std::array<Port, std::size(kLines)> ports_;
};

}  // namespace fa::set
