// What the set does out of the ordinary: rules.
#pragma once

#include <optional>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "bus/contract.h"
#include "rules/pattern.h"
#include "set/lines.h"

namespace fa::set
{

constexpr char kAllMethods[] = "all";
constexpr int kMaxMs = 600'000;
constexpr int kMaxPackets = 10'000;  // of a burst

struct Rule {
    // When: at a call of the method whose arguments are like this, when bytes like this go out of
    // the line, or at once.
    enum class When { kCall, kOut, kNow };
    struct Argument {
        gsize index;
        std::variant<gint32, Pattern> value;
    };
    struct Packet {
        Line line;
        Bytes bytes;
    };
    When when = When::kNow;
    std::string method;
    std::vector<Argument> arguments;
    Line line = 0;
    Pattern bytes;

    // How often: not the first `skip` times, then `times` times, of these by chance.
    unsigned int skip = 0;
    unsigned int times = 0;  // 0: for good
    double chance = 1;

    // What happens instead of the ordinary answer, and beside it; and how much later.
    guint delayMs = 0;
    std::optional<int> result;
    Variant data;
    std::optional<std::string> error;
    bool noAnswer = false;
    std::vector<Packet> packets;  // come into lines
    std::optional<guint> leaveMs;

    std::string name;      // what a call's line tells of the answer
    bool isFault = false;  // set in words
    unsigned int seen = 0;
    unsigned int used = 0;

    // The answer waits for the delay where the rule has one, or nothing else that could.
    bool DelaysAnswer() const
    {
        return result || data || error || noAnswer || (packets.empty() && !leaveMs);
    }
};

class Rules
{
public:
    explicit Rules(guint32 seed) : random_(seed) {}

    // After those that are there; one for all methods stays after those for single ones.
    void Add(const Rule& rule);

    // A fault goes before all, in place of an earlier one of the same method.
    void SetFault(const Rule& rule);

    void ClearFaults();
    void Clear() { rules_.clear(); }

    // The first rule that holds for a call that is made now, or bytes that go out. Each rule counts
    // what it is for, whether or not another one goes before.
    std::optional<Rule> TakeCall(const std::string& method, GVariant* arguments);
    std::optional<Rule> TakeOut(Line line, const Bytes& bytes);

private:
    template <typename Condition>
    std::optional<Rule> Take(Condition condition);

    std::vector<Rule> rules_;
    std::mt19937 random_;
};

}  // namespace fa::set
