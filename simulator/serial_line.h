// One serial line of the set: a pseudo-terminal whose other end is anybody's.
#pragma once

#include <termios.h>

#include <functional>
#include <string>

#include "console.h"

namespace fa
{

class SerialLine
{
public:
    using Receiver = std::function<void(const Bytes& bytes)>;

    // The line can be found at `link`, or where that is empty at its device. Closed at first.
    SerialLine(std::string name, std::string link, Receiver receiver);
    ~SerialLine();
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;

    // Makes the pseudo-terminal in raw mode, a new one each time; only where Close() has yet to
    // hang up, the old one stays with what it holds. Throws Failure.
    void Open();

    // Refuses all that is sent from now on, and hangs up when the other end has read what was sent
    // before, after a second at the latest.
    void Close();

    bool IsOpen() const { return state == State::kOpen; }
    bool SetSpeed(speed_t speed);

    // Queues the bytes for the other end, which may be slow or not there yet. False where the line
    // is closed or too much is waiting already.
    bool Send(const Bytes& bytes);

    // While reading is off, the writer at the other end is held up.
    void SetReading(bool on);

private:
    enum class State { kOpen, kClosing, kClosed };

    static gboolean OnReadable(gint, GIOCondition, gpointer self);
    static gboolean OnWritable(gint, GIOCondition, gpointer self);
    static gboolean OnClosing(gpointer self);
    void Flush();
    std::size_t Unread() const;
    void HangUp();
    void MakeLink();

    const std::string name;
    const std::string link;
    const Receiver receiver;
    State state = State::kClosed;
    bool reading = true;
    int master = -1;
    int terminal = -1;  // our own hold on the other end: bytes wait there for whoever comes
    std::string device;
    Bytes output;
    guint readWatch = 0;
    guint writeWatch = 0;
    guint closeTimer = 0;
    int closeSteps = 0;
};

}  // namespace fa
