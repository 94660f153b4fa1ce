// The simulated set as a service: it takes calls, answers them, and announces what the lines
// receive.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bus/presence.h"
#include "conversation/conversation.h"
#include "conversation/replay.h"
#include "rules/fault_words.h"
#include "rules/rule.h"
#include "set/state.h"
#include "support/event_source.h"

namespace fa::set
{

struct ServiceOptions {
    StateOptions set;
    std::vector<FaultRequest> faults;
    std::string scenario;  // path; empty: none
    std::string record;    // path; empty: none
    std::string replay;    // path; empty: none
    Replay::Speed speed = Replay::Speed::kFast;
    std::optional<guint32> seed;
    guint replyTimeoutMs = 25'000;  // after which clients no longer wait for an answer
};

class Service
{
public:
    struct Owner {
        std::function<void()> onJoined;  // once, when it is on the bus
        // The end, with the program's status; why has been said.
        std::function<void(int status)> onEnd;
    };

    // Throws Failure where something cannot be read or written.
    Service(const ServiceOptions& options, Owner owner);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Begins to join the bus; the lines are opened on the way.
    void Join() { presence_.Join(); }

    // Completes the recording and the replay, and leaves the bus; returns EXIT_SUCCESS, or the
    // status where they fail.
    int Finish();

    // What the control interface asks for. Throw Failure.
    void SetFault(const FaultRequest& request);
    void ClearFaults();
    void AddRules(const std::string& name, const std::string& text);
    void ClearRules();
    void WritePacket(const std::string& line, const Bytes& packet);
    Conversation& Calls() { return conversation_; }

private:
    struct Sent {
        Line line;
        Bytes bytes;
    };

    void OnJoined();
    void OnLost(const std::string& reason);

    // A call: its rule is taken, what it fetches or does is done, its answer is told and sent.
    void OnCall(const Presence::Invocation& invocation);
    void CarryOut(Event& call, const std::optional<Rule>& rule, bool late);
    void Fetch(PacketQueue& queue, Event& call, const std::optional<Rule>& rule, bool late);
    const std::string& Tell(const Event& call);  // returns its line
    static void Send(const Presence::Invocation& invocation, const Event& call);
    void TellSent();
    void OnReplayedCall(Event& call, const Presence::Invocation& invocation);

    void Start(const Rule& rule);
    void Happen(const Rule& rule);
    void Leave(guint milliseconds);

    void Announce(Line line, const Bytes& packet, bool again);
    void OnArrival(Line line, const Bytes& bytes);
    void Play(const Event& event, bool late);
    void RefuseInReplay() const;

    const ServiceOptions options_;
    const Owner owner_;
    bool begun_ = false;
    bool ended_ = false;
    const guint32 seed_;
    bool seedTold_ = false;
    Rules rules_;
    std::vector<Rule> starting_;  // what happens when the service is on the bus
    Conversation conversation_;
    State set_;
    std::unique_ptr<Replay> replay_;
    std::vector<Sent> sent_;  // by the call at hand
    Timers timers_;
    EventSource leaving_;
    EventSource rejoining_;
    Presence presence_;
};

}  // namespace fa::set
