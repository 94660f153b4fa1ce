// A recording that is played back: it answers the calls, and plays what happens beside them.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "conversation/event.h"
#include "support/event_source.h"

namespace fa::set
{

class Replay
{
public:
    enum class Speed { kFast, kReal };
    struct Owner {
        // Anything but a call; `late` where its time has passed, which a repetition need not make
        // up.
        std::function<void(const Event& event, bool late)> play;
        std::function<void(const Event& event)> announceAgain;  // what nobody may have heard
        std::function<void(const std::string& difference)> onDifference;  // once
    };

    // Reads the recording. Throws Failure where that is not whole and sound.
    Replay(std::string path, Speed speed, Owner owner);

    // Plays what comes up to the next call; goes on with it where that had to wait for the service
    // to be on the bus again.
    void Continue();

    // Gives the call that is made now the answer of the recording's next call; then Continue(). A
    // fetch that an announcement has led to, but that has come before, is in vain: it gets nothing,
    // and is none of the recording's.
    enum class Verdict { kAnswered, kInVain, kDiffers };
    Verdict Answer(Event& call);

    // Bytes come into a line that the recording has nothing to do with: a difference.
    void OnArrival(Line line, const Bytes& bytes);

    // The end: calls that have not come are a difference. Returns false where there was any.
    bool Finish();

private:
    struct Recorded {
        Event event;
        std::size_t number;  // of its line, from 1
    };

    bool AtCall() const { return next_ < events_.size() && IsCall(events_[next_].event); }
    static bool IsCall(const Event& event) { return event.kind == Event::Kind::kCall; }
    guint WaitBeforeNext() const;
    bool PlayNext(bool late);
    void PlayUpToCall(bool hurry);
    void RepeatAnnouncement(guint milliseconds);
    void Differ(const std::string& what, const std::string& instead);

    const std::string path_;
    const Speed speed_;
    const Owner owner_;
    std::vector<std::string> lines_;
    std::vector<Recorded> events_;
    std::size_t next_ = 0;
    bool away_ = false;  // off the bus
    bool different_ = false;
    EventSource waiting_;
    // Of each line: the last announcement, and how many have been made and not been followed.
    std::array<Event, std::size(kLines)> announced_;
    std::array<int, std::size(kLines)> unfollowed_{};
    std::array<bool, std::size(kLines)> early_{};  // it was followed before the fetch's turn
};

}  // namespace fa::set
