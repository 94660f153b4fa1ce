#include "set/packet_queue.h"

#include <algorithm>
#include <utility>

namespace fa::set
{

namespace
{

constexpr std::size_t kMaxPackets = 64;
// An application that is merely slow still has the first announcements before it, and fetches in
// vain for each one too many: they are repeated one by one, and seldom.
constexpr guint kQuietMs = 1000;
constexpr guint kMaxQuietMs = 4000;
constexpr guint kCatchUpMs = 20;

}  // namespace

PacketQueue::PacketQueue(guint gapMs, Owner owner) : gapMs_(gapMs), owner_(std::move(owner)) {}

void PacketQueue::SetPacketLength(std::size_t length)
{
    packetLength_ = length;
    Cut();
}

void PacketQueue::Receive(const Bytes& bytes)
{
    partial_.insert(partial_.end(), bytes.begin(), bytes.end());
    Cut();
}

void PacketQueue::Cut()
{
    const std::size_t length = packetLength_ != 0 ? packetLength_ : kMaxPacketBytes;
    auto begin = partial_.begin();
    while (static_cast<std::size_t>(partial_.end() - begin) >= length) {
        const auto end = begin + static_cast<std::ptrdiff_t>(length);
        Push(Bytes(begin, end));
        begin = end;
    }
    partial_.erase(partial_.begin(), begin);

    silence_.Stop();
    if (packetLength_ == 0 && !partial_.empty()) {
        // At a low priority, so that what has arrived by now is read before the packet ends.
        silence_.StartTimer(
            gapMs_, [this] { Push(std::exchange(partial_, {})); }, G_PRIORITY_LOW);
    }
}

void PacketQueue::Push(Bytes packet)
{
    packets_.push_back(std::move(packet));
    owner_.onFull(packets_.size() >= kMaxPackets);
    if (!quiet_.IsActive()) {
        AnnounceLater(kQuietMs);
    }
    owner_.onPacket(packets_.back());
    owner_.announce(packets_.back(), false);
}

void PacketQueue::RemoveOldest()
{
    packets_.pop_front();
    owner_.onFull(packets_.size() >= kMaxPackets);
    catchingUp_ = catchingUp_ && !packets_.empty();
    AnnounceLater(catchingUp_ ? kCatchUpMs : kQuietMs);
}

void PacketQueue::AnnounceAgain()
{
    catchingUp_ = !packets_.empty();
    if (catchingUp_) {
        owner_.announce(packets_.front(), true);
    }
}

void PacketQueue::AnnounceLater(guint milliseconds)
{
    quiet_.Stop();
    if (!packets_.empty()) {
        quiet_.StartTimer(milliseconds, [this, milliseconds] {
            AnnounceAgain();
            AnnounceLater(std::clamp(2 * milliseconds, kQuietMs, kMaxQuietMs));
        });
    }
}

}  // namespace fa::set
