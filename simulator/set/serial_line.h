// One serial line of the set: a pseudo-terminal whose other end is anybody's.
#pragma once

#include <glib.h>
#include <termios.h>

#include <functional>
#include <string>

#include "set/leave_watch.h"
#include "support/console.h"
#include "support/event_source.h"

namespace fa::set
{

class SerialLine
{
public:
    using Receiver = std::function<void(const Bytes& bytes)>;

    // The line can be found at `link`, or where that is empty at its device. Closed at first.
    SerialLine(std::string name, std::string link, LeaveWatch& leaveWatch, Receiver receiver);
    ~SerialLine();
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    // Makes the pseudo-terminal in raw mode, a new one each time; only where Close() has yet to
    // hang up, the old one stays with what it holds. Throws Failure.
    void Open();

    // Refuses all that is sent from now on, and hangs up when the other end has read what was sent
    // before, after a second at the latest.
    void Close();

    bool IsOpen() const { return state_ == State::kOpen; }
    bool SetSpeed(speed_t speed);

    // Queues the bytes for the other end, which may be slow or not there yet. False where the line
    // is closed or too much is waiting already.
    bool Send(const Bytes& bytes);

    // While reading is off, the writer at the other end is held up.
    void SetReading(bool on);

private:
    enum class State { kOpen, kClosing, kClosed };

    void Read();
    void Flush();
    void CloseWhenRead(int steps);
    std::size_t Unread() const;
    void HangUp();
    void MakeLink();
    void KeepShared();

    const std::string name_;
    const std::string link_;
    LeaveWatch& leaveWatch_;
    const Receiver receiver_;
    State state_ = State::kClosed;
    bool reading_ = true;
    int master_ = -1;
    int terminal_ = -1;  // our own hold on the other end: bytes wait there until somebody comes
    int leaveId_ = -1;
    std::string device_;
    Bytes output_;
    EventSource readable_;
    EventSource writable_;
    EventSource closing_;
    EventSource watching_;
};

}  // namespace fa::set
