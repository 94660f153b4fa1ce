#include "protocol_queue.h"

#include <algorithm>
#include <utility>

#include "event_sources.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostPackets = 64;
// Announcements are repeated one by one, and seldom: an application that is merely slow still has
// the first ones before it, and fetches in vain for each one too many.
constexpr guint kQuietMs = 1000;
constexpr guint kMostQuietMs = 4000;
constexpr guint kCatchUpMs = 20;

}  // namespace

ProtocolQueue::ProtocolQueue(const std::string& lineName, const std::string& link, guint gap,
                             Announcer protocolAnnouncer)
    : line(lineName, link, [this](const Bytes& bytes) { Receive(bytes); }),
      name(lineName),
      gapMs(gap),
      announcer(std::move(protocolAnnouncer))
{
}

ProtocolQueue::~ProtocolQueue()
{
    StopSource(silenceTimer);
    StopSource(quietTimer);
}

void ProtocolQueue::SetPacketLength(std::size_t length)
{
    packetLength = length;
    Cut();
}

void ProtocolQueue::Receive(const Bytes& bytes)
{
    partial.insert(partial.end(), bytes.begin(), bytes.end());
    Cut();
}

void ProtocolQueue::Cut()
{
    const std::size_t length = packetLength != 0 ? packetLength : kMostPacketBytes;
    auto begin = partial.begin();
    while (static_cast<std::size_t>(partial.end() - begin) >= length) {
        const auto end = begin + static_cast<std::ptrdiff_t>(length);
        Push(Bytes(begin, end));
        begin = end;
    }
    partial.erase(partial.begin(), begin);

    StopSource(silenceTimer);
    if (packetLength == 0 && !partial.empty()) {
        // Behind the line's own events: what has arrived by now is read before the packet ends.
        silenceTimer = g_timeout_add_full(G_PRIORITY_LOW, gapMs, OnSilence, this, nullptr);
    }
}

gboolean ProtocolQueue::OnSilence(gpointer self)
{
    auto* queue = static_cast<ProtocolQueue*>(self);
    queue->silenceTimer = 0;
    queue->Push(std::exchange(queue->partial, {}));
    return G_SOURCE_REMOVE;
}

void ProtocolQueue::Push(Bytes packet)
{
    Say("line %s received %s", name.c_str(), Describe(packet).c_str());
    packets.push_back(std::move(packet));
    line.SetReading(packets.size() < kMostPackets);
    if (quietTimer == 0) {
        RestartQuietTimer(kQuietMs);
    }
    Announce(packets.back());
}

void ProtocolQueue::RemoveOldest()
{
    packets.pop_front();
    line.SetReading(packets.size() < kMostPackets);
    catchingUp = catchingUp && !packets.empty();
    RestartQuietTimer(catchingUp ? kCatchUpMs : kQuietMs);
}

void ProtocolQueue::AnnounceAgain()
{
    catchingUp = !packets.empty();
    if (catchingUp) {
        Announce(packets.front());
    }
}

void ProtocolQueue::Announce(const Bytes& packet)
{
    announcer(std::to_string(packet.size()) + " bytes on " + name);
}

void ProtocolQueue::RestartQuietTimer(guint milliseconds)
{
    StopSource(quietTimer);
    quietMs = milliseconds;
    if (!packets.empty()) {
        quietTimer = g_timeout_add(milliseconds, OnQuiet, this);
    }
}

// Nobody was listening, or the fetch failed: an application that comes later still gets the data.
gboolean ProtocolQueue::OnQuiet(gpointer self)
{
    auto* queue = static_cast<ProtocolQueue*>(self);
    queue->AnnounceAgain();
    queue->RestartQuietTimer(std::clamp(2 * queue->quietMs, kQuietMs, kMostQuietMs));
    return G_SOURCE_REMOVE;
}

}  // namespace fa
