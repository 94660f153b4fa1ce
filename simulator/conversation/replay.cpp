#include "conversation/replay.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace fa::set
{

namespace
{

// An announcement is lost where the application does not listen yet.
constexpr guint kFirstRepeatMs = 250;
constexpr guint kMaxRepeatMs = 4000;
constexpr std::size_t kNeighbours = 2;

std::string WithoutTime(const Event& event)
{
    const std::string json = ToJson(event);
    return "{" + json.substr(json.find(',') + 1);
}

}  // namespace

Replay::Replay(std::string path, Speed speed, Owner owner)
    : path_(std::move(path)), speed_(speed), owner_(std::move(owner))
{
    const std::string text = ReadFile("replay", path_);
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines_.push_back(line);
    }
    bool begun = false;
    bool ended = false;
    ReadJsonLines("replay " + path_, text, [&](std::size_t number, Members& members) {
        if (!std::exchange(begun, true)) {
            CheckFirstLine(members);
        } else if (ended) {
            throw Failure("something follows the end");
        } else if (IsLastLine(members)) {
            ended = true;
        } else {
            events_.push_back({ReadEvent(members), number});
        }
    });
    if (!ended) {
        throw Failure(
            "replay " + path_ + ":" + std::to_string(lines_.size() + 1) +
            ": the end is missing, {\"time\":...,\"end\":true}: the recording is cut off");
    }
}

// What follows the absence of the service or of a listener is not played before its time.
guint Replay::WaitBeforeNext() const
{
    const Event& event = events_[next_].event;
    const bool timed =
        speed_ == Speed::kReal || (event.kind == Event::Kind::kJoined && away_) || event.again;
    const gint64 before = next_ > 0 ? events_[next_ - 1].event.time : 0;
    return timed ? static_cast<guint>(std::max<gint64>(event.time - before, 0) / 1000) : 0;
}

// Returns false where it goes on when the service has joined the bus.
bool Replay::PlayNext(bool late)
{
    const Event event = events_[next_++].event;
    if (event.kind == Event::Kind::kAnnouncement && !(late && event.again)) {
        announced_[event.line] = event;
        ++unfollowed_[event.line];
        early_[event.line] = false;
    }
    owner_.play(event, late);
    if (event.kind == Event::Kind::kJoined && std::exchange(away_, false)) {
        return false;
    }
    away_ = away_ || event.kind == Event::Kind::kLeft;
    return true;
}

void Replay::PlayUpToCall(bool hurry)
{
    while (!different_ && next_ < events_.size() && !AtCall()) {
        const guint wait = hurry ? 0 : WaitBeforeNext();
        if (wait > 0) {
            waiting_.StartTimer(wait, [this] {
                if (PlayNext(false)) {
                    PlayUpToCall(false);
                }
            });
            return;
        }
        if (!PlayNext(hurry)) {
            return;
        }
    }
    RepeatAnnouncement(kFirstRepeatMs);
}

// Where the recording goes on with the fetch of what was announced, and nobody comes for it, or has
// come too early.
void Replay::RepeatAnnouncement(guint milliseconds)
{
    waiting_.Stop();
    const std::optional<Line> line =
        AtCall() ? FindLineFetchedBy(events_[next_].event.method) : std::nullopt;
    if (!different_ && line && (unfollowed_[*line] > 0 || early_[*line])) {
        waiting_.StartTimer(milliseconds, [this, line, milliseconds] {
            ++unfollowed_[*line];
            owner_.announceAgain(announced_[*line]);
            RepeatAnnouncement(std::min(2 * milliseconds, kMaxRepeatMs));
        });
    }
}

Replay::Verdict Replay::Answer(Event& call)
{
    PlayUpToCall(true);
    waiting_.Stop();
    if (different_) {
        return Verdict::kDiffers;
    }
    const std::optional<Line> fetched = FindLineFetchedBy(call.method);
    const Event* expected = AtCall() ? &events_[next_].event : nullptr;
    if (expected == nullptr || call.method != expected->method ||
        g_variant_equal(call.arguments.get(), expected->arguments.get()) == FALSE) {
        if (fetched && unfollowed_[*fetched] > 0) {
            --unfollowed_[*fetched];
            early_[*fetched] = true;
            call.data = Own(NewArray({}));
            call.result = kRefused;
            return Verdict::kInVain;
        }
        Differ(expected != nullptr ? "another call comes" : "one call is too many",
               WithoutTime(call));
        return Verdict::kDiffers;
    }
    if (fetched) {
        unfollowed_[*fetched] = std::max(unfollowed_[*fetched] - 1, 0);
        early_[*fetched] = false;
    }
    call = *expected;
    ++next_;
    return Verdict::kAnswered;
}

void Replay::Continue()
{
    if (!waiting_.IsActive()) {
        PlayUpToCall(false);
    }
}

void Replay::OnArrival(Line line, const Bytes& bytes)
{
    if (!different_) {
        Event event;
        event.kind = Event::Kind::kIn;
        event.line = line;
        event.bytes = bytes;
        Differ("bytes come into a line that the recording plays", WithoutTime(event));
    }
}

bool Replay::Finish()
{
    while (!different_ && next_ < events_.size()) {
        PlayUpToCall(true);
        if (AtCall()) {
            Differ("a call is missing", "");
        }
    }
    return !different_;
}

// Shows the next line of the recording between its neighbours, and what came instead.
void Replay::Differ(const std::string& what, const std::string& instead)
{
    different_ = true;
    waiting_.Stop();
    const std::size_t number = next_ < events_.size() ? events_[next_].number : lines_.size();
    std::string text = path_ + ":" + std::to_string(number) + ": " + what;
    const std::size_t first = number > kNeighbours ? number - kNeighbours : 1;
    for (std::size_t i = first; i <= std::min(number + kNeighbours, lines_.size()); ++i) {
        text += (i == number ? "\n- " : "\n  ") + lines_[i - 1];
        if (i == number && !instead.empty()) {
            text += "\n+ " + instead;
        }
    }
    owner_.onDifference(text);
}

}  // namespace fa::set
