// What arrives on one of the set's serial protocols, cut into packets that wait to be fetched.
#pragma once

#include <deque>
#include <functional>

#include "support/console.h"
#include "support/event_source.h"

namespace fa::set
{

constexpr std::size_t kMaxPacketBytes = 256;  // what a client's record holds

// Each packet is announced once and fetched once, in the order of arrival.
class PacketQueue
{
public:
    struct Owner {
        std::function<void(const Bytes& packet)> onPacket;  // before it is announced
        std::function<void(const Bytes& packet, bool again)> announce;
        std::function<void(bool full)> onFull;  // a full queue takes more, but should not have to
    };

    // A packet without a fixed length ends where the line is silent for `gapMs`.
    PacketQueue(guint gapMs, Owner owner);

    // Bytes of each packet; 0 for packets that end with a silence. What has arrived in part is cut
    // by the new length.
    void SetPacketLength(std::size_t length);

    // Takes bytes as they come, to be cut into packets.
    void Receive(const Bytes& bytes);

    // Adds and announces a packet.
    void Push(Bytes packet);

    // The oldest packet, or null.
    const Bytes* Oldest() const { return packets_.empty() ? nullptr : &packets_.front(); }
    void RemoveOldest();

    // Announces the oldest packet once more, if any. Announcements may be lost where nobody listens
    // or a fetch fails, so the queue does this by itself as well: when nothing has happened for a
    // second, then after two seconds, then every four. Once it was necessary, it is done 20 ms
    // after each fetch until the queue is empty.
    void AnnounceAgain();

private:
    void Cut();
    void AnnounceLater(guint milliseconds);

    const guint gapMs_;
    const Owner owner_;
    std::size_t packetLength_ = 0;
    Bytes partial_;
    std::deque<Bytes> packets_;
    bool catchingUp_ = false;  // announcements may be lost: there can be more packets than fetches
    EventSource silence_;
    EventSource quiet_;
};

}  // namespace fa::set
