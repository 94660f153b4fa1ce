// What arrives on one of the set's serial protocols, cut into packets that wait to be fetched.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "serial_line.h"

namespace fa
{

constexpr std::size_t kMostPacketBytes = 256;  // what a client's record holds

// Each packet is announced once and fetched once, in the order of arrival. A full queue holds up
// the writer at the other end of the line.
class ProtocolQueue
{
public:
    using Announcer = std::function<void(const std::string& description)>;

    // A packet without a fixed length ends where the line is silent for `gapMs`.
    ProtocolQueue(const std::string& name, const std::string& link, guint gapMs,
                  Announcer announcer);
    ~ProtocolQueue();

    // Bytes of each packet; 0 for packets that end with a silence. What has arrived in part is cut
    // by the new length.
    void SetPacketLength(std::size_t length);

    // Adds and announces a packet, however full the queue is.
    void Push(Bytes packet);

    // The oldest packet, or null.
    const Bytes* Oldest() const { return packets.empty() ? nullptr : &packets.front(); }
    void RemoveOldest();

    // Announces the oldest packet once more, if any: its announcement may be lost.
    void AnnounceAgain();

    SerialLine line;

private:
    static gboolean OnSilence(gpointer self);
    static gboolean OnQuiet(gpointer self);
    void Receive(const Bytes& bytes);
    void Cut();
    void Announce(const Bytes& packet);
    void RestartQuietTimer(guint milliseconds);

    const std::string name;
    const guint gapMs;
    const Announcer announcer;
    std::size_t packetLength = 0;
    Bytes partial;
    std::deque<Bytes> packets;
    bool catchingUp = false;  // announcements may be lost: there can be more packets than fetches
    guint silenceTimer = 0;
    guint quietMs = 0;
    guint quietTimer = 0;
};

}  // namespace fa
