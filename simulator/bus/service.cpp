#include "bus/service.h"

#include <cstdlib>
#include <utility>

#include "bus/control.h"
#include "rules/scenario.h"

namespace fa::set
{

Service::Service(const ServiceOptions& options, Owner owner)
    : options_(options),
      owner_(std::move(owner)),
      seed_(options.seed ? *options.seed : g_random_int()),
      rules_(seed_),
      conversation_(options.record),
      set_(options.set,
           {[this](Line line, const Bytes& bytes) { OnArrival(line, bytes); },
            [this](Line line, const Bytes& packet, bool again) { Announce(line, packet, again); },
            [this](Line line, const Bytes& bytes) {
                if (replay_ != nullptr) {
                    replay_->OnArrival(line, bytes);
                }
                return replay_ != nullptr;
            },
            [this](Line line, const Bytes& bytes) {
                sent_.push_back({line, bytes});
            }}),
      presence_({{ServiceInterface(), [this](const Presence::Invocation& call) { OnCall(call); }},
                 {ControlInterface(),
                  [this](const Presence::Invocation& call) { Control(*this, call); }}},
                {[this] { begun_ ? void() : set_.Open(); }, [this] { OnJoined(); },
                 [this](const std::string& reason) { OnLost(reason); }})
{
    for (const FaultRequest& request : options_.faults) {
        SetFault(request);
    }
    if (!options_.scenario.empty()) {
        AddRules("scenario " + options_.scenario, ReadFile("scenario", options_.scenario));
    }
    if (!options_.replay.empty()) {
        replay_ = std::make_unique<Replay>(
            options_.replay, options_.speed,
            Replay::Owner{[this](const Event& event, bool late) { Play(event, late); },
                          [this](const Event& event) {
                              presence_.Emit(ServiceInterface(), kLines[event.line].signal,
                                             event.text);
                          },
                          [this](const std::string& difference) {
                              Complain("replay: " + difference);
                              ended_ = true;
                              owner_.onEnd(kDifferent);
                          }});
    }
}

Service::~Service() = default;

void Service::OnJoined()
{
    Say("the service is on the bus");
    if (begun_ && replay_ != nullptr) {
        replay_->Continue();
        return;
    }
    if (begun_) {
        Event event;
        event.kind = Event::Kind::kJoined;
        conversation_.Add(event);
        set_.AnnounceAgain();
        return;
    }
    begun_ = true;
    conversation_.Begin();
    for (const Rule& rule : std::exchange(starting_, {})) {
        Start(rule);
    }
    owner_.onJoined();
    if (replay_ != nullptr) {
        replay_->Continue();
    }
}

void Service::OnLost(const std::string& reason)
{
    Complain(reason);
    ended_ = true;
    owner_.onEnd(EXIT_FAILURE);
}

int Service::Finish()
{
    const bool same = !begun_ || ended_ || replay_ == nullptr || replay_->Finish();
    if (begun_) {
        conversation_.End();
    }
    presence_.Leave();
    if (!same) {
        return kDifferent;
    }
    return conversation_.Shortfall().empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

// ---- Calls ------------------------------------------------------------------------------------

void Service::OnCall(const Presence::Invocation& invocation)
{
    Event call;
    call.method = g_dbus_method_invocation_get_method_name(invocation.get());
    call.arguments = Variant(
        g_variant_ref(g_dbus_method_invocation_get_parameters(invocation.get())), g_variant_unref);
    if (replay_ != nullptr) {
        OnReplayedCall(call, invocation);
        return;
    }
    const std::optional<Rule> rule = rules_.TakeCall(call.method, call.arguments.get());
    const bool delayed = rule && rule->DelaysAnswer() && rule->delayMs > 0;
    if (rule && rule->DelaysAnswer()) {
        call.fault = rule->name;
    }
    CarryOut(call, rule, delayed && rule->delayMs >= options_.replyTimeoutMs);
    const std::string& line = Tell(call);
    if (delayed) {
        timers_.Start(rule->delayMs, [invocation, call] { Send(invocation, call); });
    } else {
        Send(invocation, call);
    }
    // After the answer, because the application waits for that.
    presence_.Emit(ControlInterface(), "Called", line);
    TellSent();
    if (rule) {
        Start(*rule);
    }
}

// `late`: the answer comes when nobody waits for it any more.
void Service::CarryOut(Event& call, const std::optional<Rule>& rule, bool late)
{
    if (rule && rule->error) {
        call.error = std::string(kFaultError) + ": " + *rule->error;
        return;
    }
    if (rule && rule->noAnswer) {
        return;
    }
    if (const std::optional<Line> fetched = FindLineFetchedBy(call.method)) {
        Fetch(*set_.Queue(*fetched), call, rule, late);
        return;
    }
    call.result = rule && rule->result ? *rule->result : kDone;
    if (call.result != kRefused) {
        const int own = Work(set_, call.method, call.arguments.get());
        call.result = rule && rule->result ? *rule->result : own;
    }
}

// What is not given away stays, and is announced again.
void Service::Fetch(PacketQueue& queue, Event& call, const std::optional<Rule>& rule, bool late)
{
    const bool ruled = rule && rule->result;
    const Bytes* oldest = queue.Oldest();
    if (rule && rule->data) {
        call.data = rule->data;
        call.result = ruled ? *rule->result : kDone;
    } else if (oldest == nullptr || (ruled && *rule->result == kRefused)) {
        call.data = Own(NewArray({}));
        call.result = ruled ? *rule->result : kRefused;
    } else {
        call.data = Own(NewPacket(*oldest));
        call.result = ruled ? *rule->result : kDone;
        if (!late) {
            queue.RemoveOldest();
        }
    }
}

const std::string& Service::Tell(const Event& call)
{
    if (!IsQuiet()) {
        const Variant reply =
            call.result ? Own(NewReply(call.data.get(), *call.result)) : Variant();
        Say("%s(%s) -> %s%s%s", call.method.c_str(), Describe(call.arguments.get()).c_str(),
            reply != nullptr     ? Describe(reply.get()).c_str()
            : call.error.empty() ? "nothing"
                                 : call.error.c_str(),
            call.fault.empty() ? "" : ", fault: ", call.fault.c_str());
    }
    return conversation_.Add(call);
}

void Service::Send(const Presence::Invocation& invocation, const Event& call)
{
    if (!call.error.empty()) {
        const auto colon = call.error.find(": ");
        g_dbus_method_invocation_return_dbus_error(
            G_DBUS_METHOD_INVOCATION(g_object_ref(invocation.get())),
            call.error.substr(0, colon).c_str(),
            colon != std::string::npos ? call.error.c_str() + colon + 2 : "");
    } else if (call.result) {
        g_dbus_method_invocation_return_value(
            G_DBUS_METHOD_INVOCATION(g_object_ref(invocation.get())),
            NewReply(call.data.get(), *call.result));
    }
}

void Service::TellSent()
{
    for (const Sent& sent : std::exchange(sent_, {})) {
        Event event;
        event.kind = Event::Kind::kOut;
        event.line = sent.line;
        event.bytes = sent.bytes;
        conversation_.Add(event);
        if (const std::optional<Rule> rule = rules_.TakeOut(sent.line, sent.bytes)) {
            Start(*rule);
        }
    }
}

void Service::OnReplayedCall(Event& call, const Presence::Invocation& invocation)
{
    switch (replay_->Answer(call)) {
        case Replay::Verdict::kAnswered:
            if (call.result && *call.result != kRefused && !FindLineFetchedBy(call.method)) {
                Work(set_, call.method, call.arguments.get());
            }
            presence_.Emit(ControlInterface(), "Called", Tell(call));
            break;
        case Replay::Verdict::kInVain:
            break;
        case Replay::Verdict::kDiffers:
            call.error = std::string(kFaultError) + ": the recording has another call";
            break;
    }
    Send(invocation, call);
    replay_->Continue();
}

// ---- Rules ------------------------------------------------------------------------------------

void Service::RefuseInReplay() const
{
    if (replay_ != nullptr) {
        throw Failure("a replay goes by its recording alone");
    }
}

void Service::SetFault(const FaultRequest& request)
{
    RefuseInReplay();
    const Rule rule = ToRule(request);
    if (rule.when == Rule::When::kNow) {
        Start(rule);
        return;
    }
    Say("fault of %s", Describe(request).c_str());
    rules_.SetFault(rule);
}

void Service::ClearFaults()
{
    Say("all faults are taken back");
    rules_.ClearFaults();
}

void Service::AddRules(const std::string& name, const std::string& text)
{
    RefuseInReplay();
    const std::vector<Rule> rules = ReadScenario(name, text);
    for (const Rule& rule : rules) {
        if (rule.chance < 1 && !std::exchange(seedTold_, true)) {
            Say("chance goes by --seed %u", seed_);
        }
        if (rule.when == Rule::When::kNow) {
            Start(rule);
        } else {
            rules_.Add(rule);
        }
    }
}

void Service::ClearRules()
{
    Say("all rules are taken back");
    rules_.Clear();
}

// What the rule says beside the answer.
void Service::Start(const Rule& rule)
{
    if (!begun_) {
        starting_.push_back(rule);
    } else if (rule.delayMs > 0) {
        timers_.Start(rule.delayMs, [this, rule] { Happen(rule); });
    } else {
        Happen(rule);
    }
}

void Service::Happen(const Rule& rule)
{
    for (const Rule::Packet& packet : rule.packets) {
        set_.Queue(packet.line)->Push(packet.bytes);
    }
    if (rule.leaveMs) {
        // After the answer to who asks for it.
        leaving_.StartTimer(0, [this, absence = *rule.leaveMs] { Leave(absence); });
    }
}

void Service::Leave(guint milliseconds)
{
    Say("the service leaves the bus for %u ms", milliseconds);
    Event event;
    event.kind = Event::Kind::kLeft;
    conversation_.Add(event);
    presence_.Leave();
    rejoining_.StartTimer(milliseconds, [this] { presence_.Join(); });
}

// ---- Lines ------------------------------------------------------------------------------------

void Service::WritePacket(const std::string& name, const Bytes& packet)
{
    RefuseInReplay();
    const Rule::Packet checked = ReadPacket(name, packet);
    set_.Queue(checked.line)->Push(checked.bytes);
}

void Service::OnArrival(Line line, const Bytes& bytes)
{
    Say("line %s received %s%s", kLines[line].name, Describe(bytes).c_str(),
        kLines[line].HasProtocol() ? "" : ", which nobody asked for");
    Event event;
    event.kind = Event::Kind::kIn;
    event.line = line;
    event.bytes = bytes;
    conversation_.Add(event);
}

void Service::Announce(Line line, const Bytes& packet, bool again)
{
    if (!presence_.IsJoined()) {
        return;  // when it is, the oldest packet is announced
    }
    Event event;
    event.kind = Event::Kind::kAnnouncement;
    event.line = line;
    event.text = std::to_string(packet.size()) + " bytes on " + kLines[line].name;
    event.again = again;
    conversation_.Add(event);
    presence_.Emit(ServiceInterface(), kLines[line].signal, event.text);
}

void Service::Play(const Event& event, bool late)
{
    conversation_.Add(event);
    switch (event.kind) {
        case Event::Kind::kAnnouncement:
            if (!(late && event.again)) {
                presence_.Emit(ServiceInterface(), kLines[event.line].signal, event.text);
            }
            break;
        case Event::Kind::kOut:
            set_.Play(event.line, event.bytes);
            break;
        case Event::Kind::kIn:
            Say("line %s receives %s", kLines[event.line].name, Describe(event.bytes).c_str());
            break;
        case Event::Kind::kLeft:
            presence_.Leave();
            break;
        case Event::Kind::kJoined:
            if (!presence_.IsJoined()) {
                presence_.Join();
            }
            break;
        case Event::Kind::kCall:
            break;
    }
}

}  // namespace fa::set
