#include "rules/scenario.h"

#include "rules/fault_words.h"
#include "support/json_lines.h"

namespace fa::set
{

namespace
{

Line ReadLine(const std::string& name, bool protocol)
{
    const std::optional<Line> line = FindLineNamed(name);
    if (!line || (protocol && !kLines[*line].HasProtocol())) {
        throw Failure(protocol ? "packets come in on ss, rjp and ep, not on \"" + name + "\""
                               : "there is no line \"" + name + "\"");
    }
    return *line;
}

void ReadArguments(Members members, Rule& rule)
{
    const GDBusMethodInfo* method = FindMethod(rule.method);
    GDBusArgInfo** const infos = method != nullptr ? method->in_args : nullptr;
    for (gsize i = 0; infos != nullptr && infos[i] != nullptr; ++i) {
        const std::string name = infos[i]->name;
        if (!members.Has(name)) {
            continue;
        }
        if (std::string(infos[i]->signature) == "i") {
            const gint64 number = *members.Integer(name, G_MININT32, G_MAXINT32);
            rule.arguments.push_back({i, static_cast<gint32>(number)});
        } else {
            rule.arguments.push_back({i, Pattern(*members.Text(name))});
        }
    }
    members.Finish();
}

void ReadCondition(Members& members, Rule& rule)
{
    const int conditions = members.Has("method") + members.Has("out") + members.Has("start");
    if (conditions != 1) {
        throw Failure("a rule has one condition: \"method\", \"out\" or \"start\"");
    }
    if (const auto method = members.Text("method")) {
        if (*method != kAllMethods && FindMethod(*method) == nullptr) {
            throw Failure("there is no method \"" + *method + "\"");
        }
        rule.when = Rule::When::kCall;
        rule.method = *method;
        if (const auto arguments = members.Object("arguments")) {
            ReadArguments(*arguments, rule);
        }
    } else if (auto out = members.Object("out")) {
        const std::vector<std::string> names = out->Names();
        if (names.size() != 1) {
            throw Failure("\"out\" names one line");
        }
        rule.when = Rule::When::kOut;
        rule.line = ReadLine(names[0], false);
        rule.bytes = Pattern(*out->Text(names[0]));
    } else {
        members.Flag("start");
        rule.when = Rule::When::kNow;
    }
}

// What is said of a call's answer makes sense where there is a call to be answered.
void ReadAnswer(Members& members, Rule& rule)
{
    const auto add = [&](const char* member) {
        if (rule.when != Rule::When::kCall) {
            throw Failure("\"" + std::string(member) + "\" needs a \"method\" to answer");
        }
        rule.name += (rule.name.empty() ? "" : ", ") + std::string(member);
    };
    if (const auto result = members.Integer("result", G_MININT32, G_MAXINT32)) {
        add("result");
        rule.result = static_cast<int>(*result);
    }
    if (members.Has("data")) {
        add("data");
        if (!FindLineFetchedBy(rule.method)) {
            throw Failure("only a Get...ProtocolData has \"data\"");
        }
        JsonNode* node = members.Node("data");
        rule.data = Own(JSON_NODE_HOLDS_ARRAY(node) ? NewArray(ToElements(node, G_MAXUINT32))
                                                    : NewPacket(ReadHex(*members.Text("data"))));
    }
    if (const auto error = members.Text("error")) {
        add("error");
        rule.error = *error;
    }
    if (members.Flag("no-answer")) {
        add("no-answer");
        rule.noAnswer = true;
    }
    if ((rule.error || rule.noAnswer) && rule.name != "error" && rule.name != "no-answer") {
        throw Failure("a call has one answer: \"error\" and \"no-answer\" stand alone");
    }
}

void ReadEvents(Members& members, Rule& rule)
{
    if (auto in = members.Object("in")) {
        for (const std::string& name : in->Names()) {
            rule.packets.push_back(ReadPacket(name, ReadHex(*in->Text(name))));
        }
    }
    if (auto burst = members.Object("burst")) {
        for (const std::string& name : burst->Names()) {
            AddBurst(rule, ReadLine(name, true),
                     static_cast<int>(*burst->Integer(name, 1, kMaxPackets)));
        }
    }
    if (const auto leave = members.Integer("leave", 0, kMaxMs)) {
        rule.leaveMs = static_cast<guint>(*leave);
    }
}

Rule ReadRule(Members& members)
{
    Rule rule;
    ReadCondition(members, rule);
    rule.skip = static_cast<unsigned int>(members.Integer("skip", 0, G_MAXINT32).value_or(0));
    rule.times = static_cast<unsigned int>(members.Integer("times", 1, G_MAXINT32).value_or(0));
    rule.chance = members.Number("chance", 0, 1).value_or(1);
    if (rule.when == Rule::When::kNow && (rule.skip != 0 || rule.times != 0 || rule.chance < 1)) {
        throw Failure("the start comes once: \"skip\", \"times\" and \"chance\" do not go with it");
    }
    rule.delayMs = static_cast<guint>(members.Integer("delay", 0, kMaxMs).value_or(0));
    ReadAnswer(members, rule);
    ReadEvents(members, rule);
    const bool something = !rule.name.empty() || !rule.packets.empty() || rule.leaveMs ||
                           (members.Has("delay") && rule.when == Rule::When::kCall);
    if (!something) {
        throw Failure("nothing happens by this rule");
    }
    if (rule.name.empty() && rule.DelaysAnswer()) {
        rule.name = "delay";
    }
    return rule;
}

}  // namespace

std::vector<Rule> ReadScenario(const std::string& name, const std::string& text)
{
    std::vector<Rule> rules;
    ReadJsonLines(name, text, [&](std::size_t /*line*/, Members& members) {
        rules.push_back(ReadRule(members));
    });
    return rules;
}

Rule::Packet ReadPacket(const std::string& line, const Bytes& bytes)
{
    if (bytes.empty() || bytes.size() > kMaxPacketBytes) {
        throw Failure("a packet has 1 to 256 bytes, not " + std::to_string(bytes.size()));
    }
    return {ReadLine(line, true), bytes};
}

}  // namespace fa::set
