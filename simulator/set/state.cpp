#include "set/state.h"

#include <filesystem>

#include "set/log_copy.h"
#include "set/profile.h"

namespace fa::set
{

State::State(const StateOptions& options, Owner owner) : options_(options), owner_(std::move(owner))
{
    if (!options_.profile.empty()) {
        CheckProfileWritable(options_.profile);
    }
    for (const std::string& folder : {options_.logFolder, options_.usbFolder}) {
        if (!folder.empty() && !std::filesystem::is_directory(folder)) {
            throw Failure("there is no folder " + folder);
        }
    }
    for (Line line = 0; line < ports_.size(); ++line) {
        Port& port = ports_[line];
        port.line = std::make_unique<SerialLine>(
            kLines[line].name, options_.links[line], leaveWatch_,
            [this, line](const Bytes& bytes) { Receive(line, bytes); });
        if (kLines[line].HasProtocol()) {
            port.queue = std::make_unique<PacketQueue>(
                options_.gapMs,
                PacketQueue::Owner{
                    [this, line](const Bytes& packet) { owner_.onArrival(line, packet); },
                    [this, line](const Bytes& packet, bool again) {
                        owner_.announce(line, packet, again);
                    },
                    // A full queue holds up the writer at the other end of the line.
                    [&port](bool full) { port.line->SetReading(!full); }});
        }
    }
}

void State::Open()
{
    for (Port& port : ports_) {
        port.line->Open();
    }
}

void State::Receive(Line line, const Bytes& bytes)
{
    if (owner_.refuse(line, bytes)) {
        return;
    }
    if (PacketQueue* queue = Queue(line)) {
        queue->Receive(bytes);
    } else {
        owner_.onArrival(line, bytes);
    }
}

bool State::Send(Line line, const Bytes& bytes)
{
    if (options_.played) {
        return true;
    }
    if (bytes.empty() || !ports_[line].line->Send(bytes)) {
        return false;
    }
    owner_.onSent(line, bytes);
    return true;
}

bool State::StoreLocalSet(const Bytes& name)
{
    const std::optional<unsigned int> number = FindLocalSet(name);
    if (!number) {
        Say("refused: no such local set");
        return false;
    }
    if (options_.profile.empty()) {
        Say("refused: there is no profile to change");
        return false;
    }
    try {
        fa::set::StoreLocalSet(options_.profile, *number);
    } catch (const Failure& failure) {
        Say("refused: %s", failure.what());
        return false;
    }
    Say("the local set is %u now", *number);
    return true;
}

bool State::ChangeUartSpeed(speed_t speed)
{
    SerialLine& uart = *ports_[kUart].line;
    try {
        if (!uart.IsOpen()) {
            uart.Open();
        }
    } catch (const Failure& failure) {
        Say("refused: %s", failure.what());
        return false;
    }
    return uart.SetSpeed(speed);
}

void State::CloseUart()
{
    ports_[kUart].line->Close();
}

bool State::ChangeSsPacketLength(int length)
{
    if (length < 0 || length > static_cast<int>(kMaxPacketBytes)) {
        Say("refused: a packet of 0 (no fixed length) to %zu bytes is possible", kMaxPacketBytes);
        return false;
    }
    ports_[kSs].queue->SetPacketLength(static_cast<std::size_t>(length));
    return true;
}

bool State::CopyLogs()
{
    return fa::set::CopyLogs(options_.logFolder, options_.usbFolder);
}

void State::AnnounceAgain()
{
    for (Port& port : ports_) {
        if (port.queue != nullptr) {
            port.queue->AnnounceAgain();
        }
    }
}

}  // namespace fa::set
