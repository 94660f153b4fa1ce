#include "conversation/event.h"

#include <cmath>
#include <cstdio>

#include "rules/pattern.h"

namespace fa::set
{

namespace
{

constexpr gint64 kVersion = 1;
constexpr double kMaxMs = 1e12;

std::string Time(gint64 microseconds)
{
    char text[48];
    std::snprintf(text, sizeof(text), "{\"time\":%" G_GINT64_FORMAT ".%03d", microseconds / 1000,
                  static_cast<int>(microseconds % 1000));
    return text;
}

void AppendValue(std::string& json, GVariant* value)
{
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_INT32)) {
        json += std::to_string(g_variant_get_int32(value));
        return;
    }
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(value, &count, sizeof(guint32)));
    json += '[';
    for (gsize i = 0; i < count; ++i) {
        json += (i == 0 ? "" : ",") + std::to_string(elements[i]);
    }
    json += ']';
}

void AppendCall(std::string& json, const Event& call)
{
    json += ",\"method\":\"" + call.method + "\",\"arguments\":{";
    GDBusArgInfo** const infos = FindMethod(call.method)->in_args;
    for (gsize i = 0; i < g_variant_n_children(call.arguments.get()); ++i) {
        g_autoptr(GVariant) argument = g_variant_get_child_value(call.arguments.get(), i);
        json += std::string(i == 0 ? "\"" : ",\"") + infos[i]->name + "\":";
        AppendValue(json, argument);
    }
    json += '}';
    if (call.data != nullptr) {
        json += ",\"data\":";
        AppendValue(json, call.data.get());
    }
    if (call.result) {
        json += ",\"result\":" + std::to_string(*call.result);
    }
    if (!call.error.empty()) {
        json += ",\"error\":" + ToJson(call.error);
    }
    if (!call.fault.empty()) {
        json += ",\"fault\":" + ToJson(call.fault);
    }
}

std::string Needed(Members& members, const char* name)
{
    const std::optional<std::string> text = members.Text(name);
    if (!text) {
        throw Failure("\"" + std::string(name) + "\" is missing");
    }
    return *text;
}

GVariant* ReadArray(Members& members, const char* name)
{
    JsonNode* node = members.Node(name);
    if (node == nullptr || !JSON_NODE_HOLDS_ARRAY(node)) {
        throw Failure("\"" + std::string(name) + "\" is no array");
    }
    return NewArray(ToElements(node, G_MAXUINT32));
}

Variant ReadArguments(const GDBusMethodInfo* method, Members& members)
{
    std::optional<Members> arguments = members.Object("arguments");
    if (!arguments) {
        throw Failure("\"arguments\" is missing");
    }
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    Variant values = [&] {
        try {
            for (GDBusArgInfo** info = method->in_args; info != nullptr && *info != nullptr;
                 ++info) {
                const char* const name = (*info)->name;
                if (std::string((*info)->signature) != "i") {
                    g_variant_builder_add_value(&builder, ReadArray(*arguments, name));
                } else if (const auto number = arguments->Integer(name, G_MININT32, G_MAXINT32)) {
                    g_variant_builder_add(&builder, "i", static_cast<gint32>(*number));
                } else {
                    throw Failure("\"" + std::string(name) + "\" is missing");
                }
            }
        } catch (const Failure&) {
            g_variant_builder_clear(&builder);
            throw;
        }
        return Own(g_variant_builder_end(&builder));
    }();
    arguments->Finish();
    return values;
}

void ReadCall(Members& members, Event& event)
{
    event.method = *members.Text("method");
    const GDBusMethodInfo* method = FindMethod(event.method);
    if (method == nullptr) {
        throw Failure("there is no method \"" + event.method + "\"");
    }
    event.arguments = ReadArguments(method, members);
    if (const auto result = members.Integer("result", G_MININT32, G_MAXINT32)) {
        event.result = static_cast<int>(*result);
    }
    event.error = members.Text("error").value_or("");
    event.fault = members.Text("fault").value_or("");
    if (event.result && !event.error.empty()) {
        throw Failure("a call has \"result\" or \"error\", not both");
    }
    if (!event.error.empty() &&
        !g_dbus_is_interface_name(event.error.substr(0, event.error.find(": ")).c_str())) {
        throw Failure("\"error\" does not begin with the name of a D-Bus error");
    }
    const bool fetch = FindLineFetchedBy(event.method).has_value();
    if (fetch && event.result) {
        event.data = Own(ReadArray(members, "data"));
    }
}

Line ReadLineName(const std::string& name, bool protocol)
{
    const std::optional<Line> line = FindLineNamed(name);
    if (!line || (protocol && !kLines[*line].HasProtocol())) {
        throw Failure("there is no " + std::string(protocol ? "protocol" : "line") + " \"" + name +
                      "\"");
    }
    return *line;
}

}  // namespace

std::string ToJson(const Event& event)
{
    std::string json = Time(event.time);
    switch (event.kind) {
        case Event::Kind::kCall:
            AppendCall(json, event);
            break;
        case Event::Kind::kAnnouncement:
            json += ",\"announced\":\"" + std::string(kLines[event.line].name) +
                    "\",\"text\":" + ToJson(event.text) + (event.again ? ",\"again\":true" : "");
            break;
        case Event::Kind::kOut:
        case Event::Kind::kIn:
            json += std::string(event.kind == Event::Kind::kOut ? ",\"out\":\"" : ",\"in\":\"") +
                    kLines[event.line].name + "\",\"bytes\":\"" + ToHex(event.bytes) + "\"";
            break;
        case Event::Kind::kLeft:
            json += ",\"bus\":\"left\"";
            break;
        case Event::Kind::kJoined:
            json += ",\"bus\":\"joined\"";
            break;
    }
    return json + "}";
}

std::string FirstLine()
{
    return "{\"conversation\":" + std::to_string(kVersion) + "}";
}

std::string LastLine(gint64 time)
{
    return Time(time) + ",\"end\":true}";
}

void CheckFirstLine(Members& members)
{
    const auto version = members.Integer("conversation", 1, G_MAXINT32);
    if (!version) {
        throw Failure("no recording: its first line is " + FirstLine());
    }
    if (*version != kVersion) {
        throw Failure("a recording of version " + std::to_string(*version) + ", not " +
                      std::to_string(kVersion));
    }
}

bool IsLastLine(Members& members)
{
    members.Number("time", 0, kMaxMs);
    return members.Flag("end");
}

Event ReadEvent(Members& members)
{
    Event event;
    const std::optional<double> time = members.Number("time", 0, kMaxMs);
    if (!time) {
        throw Failure("\"time\" is missing");
    }
    event.time = std::llround(*time * 1000);
    if (members.Has("method")) {
        ReadCall(members, event);
    } else if (const auto announced = members.Text("announced")) {
        event.kind = Event::Kind::kAnnouncement;
        event.line = ReadLineName(*announced, true);
        event.text = Needed(members, "text");
        event.again = members.Flag("again");
    } else if (const auto out = members.Text("out")) {
        event.kind = Event::Kind::kOut;
        event.line = ReadLineName(*out, false);
        event.bytes = ReadHex(Needed(members, "bytes"));
    } else if (const auto in = members.Text("in")) {
        event.kind = Event::Kind::kIn;
        event.line = ReadLineName(*in, false);
        event.bytes = ReadHex(Needed(members, "bytes"));
    } else if (const auto bus = members.Text("bus")) {
        if (*bus != "left" && *bus != "joined") {
            throw Failure("\"bus\" is \"left\" or \"joined\"");
        }
        event.kind = *bus == "left" ? Event::Kind::kLeft : Event::Kind::kJoined;
    } else {
        throw Failure("no event: neither \"method\", \"announced\", \"out\", \"in\" nor \"bus\"");
    }
    return event;
}

}  // namespace fa::set
