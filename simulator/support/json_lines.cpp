#include "support/json_lines.h"

#include <cerrno>
#include <fstream>

namespace fa::set
{

namespace
{

[[noreturn]] void Refuse(const std::string& name, const std::string& what)
{
    throw Failure("\"" + name + "\" " + what);
}

bool Holds(JsonNode* node, GType type)
{
    return JSON_NODE_HOLDS_VALUE(node) && json_node_get_value_type(node) == type;
}

// The parser's own message begins with a place inside the line and a stack of its names.
std::string Reason(const GError* error)
{
    const std::string text = error->message;
    const auto begin = text.find("Parse error: ");
    return "no JSON: " + (begin != std::string::npos ? text.substr(begin + 13) : text);
}

}  // namespace

JsonNode* Members::Node(const std::string& name)
{
    read_.insert(name);
    return json_object_get_member(object_, name.c_str());
}

std::optional<std::string> Members::Text(const std::string& name)
{
    JsonNode* node = Node(name);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!Holds(node, G_TYPE_STRING)) {
        Refuse(name, "is no text");
    }
    return json_node_get_string(node);
}

std::optional<gint64> Members::Integer(const std::string& name, gint64 min, gint64 max)
{
    JsonNode* node = Node(name);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!Holds(node, G_TYPE_INT64) || json_node_get_int(node) < min ||
        json_node_get_int(node) > max) {
        Refuse(name, "is no number from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return json_node_get_int(node);
}

std::optional<double> Members::Number(const std::string& name, double min, double max)
{
    JsonNode* node = Node(name);
    if (node == nullptr) {
        return std::nullopt;
    }
    const bool number = Holds(node, G_TYPE_INT64) || Holds(node, G_TYPE_DOUBLE);
    const double value = number ? json_node_get_double(node) : 0;
    if (!number || !(value >= min && value <= max)) {
        Refuse(name, "is no number that can be");
    }
    return value;
}

bool Members::Flag(const std::string& name)
{
    JsonNode* node = Node(name);
    if (node != nullptr && !(Holds(node, G_TYPE_BOOLEAN) && json_node_get_boolean(node) != FALSE)) {
        Refuse(name, "can only be true");
    }
    return node != nullptr;
}

std::optional<Members> Members::Object(const std::string& name)
{
    JsonNode* node = Node(name);
    if (node == nullptr) {
        return std::nullopt;
    }
    if (!JSON_NODE_HOLDS_OBJECT(node)) {
        Refuse(name, "is no object");
    }
    return Members(json_node_get_object(node));
}

std::vector<std::string> Members::Names() const
{
    std::vector<std::string> names;
    g_autoptr(GList) members = json_object_get_members(object_);
    for (GList* each = members; each != nullptr; each = each->next) {
        names.emplace_back(static_cast<const char*>(each->data));
    }
    return names;
}

void Members::Finish() const
{
    for (const std::string& name : Names()) {
        if (read_.count(name) == 0) {
            Refuse(name, "does not belong here");
        }
    }
}

void ReadJsonLines(const std::string& name, const std::string& text,
                   const std::function<void(std::size_t, Members&)>& function)
{
    g_autoptr(JsonParser) parser = json_parser_new();
    std::size_t begin = 0;
    for (std::size_t number = 1; begin < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        try {
            g_autoptr(GError) error = nullptr;
            if (g_utf8_validate(line.data(), static_cast<gssize>(line.size()), nullptr) == FALSE) {
                throw Failure("no JSON: no UTF-8 text");
            }
            // As the one element of an array, because the parser takes several values in a row.
            const std::string array = "[" + line + "]";
            if (!json_parser_load_from_data(parser, array.data(), static_cast<gssize>(array.size()),
                                            &error)) {
                throw Failure(Reason(error));
            }
            JsonArray* values = json_node_get_array(json_parser_get_root(parser));
            if (json_array_get_length(values) != 1 ||
                !JSON_NODE_HOLDS_OBJECT(json_array_get_element(values, 0))) {
                throw Failure("no JSON object");
            }
            Members members(json_array_get_object_element(values, 0));
            function(number, members);
            members.Finish();
        } catch (const Failure& failure) {
            throw Failure(name + ":" + std::to_string(number) + ": " + failure.what());
        }
    }
}

std::string ToJson(const std::string& text)
{
    g_autoptr(JsonNode) node = json_node_new(JSON_NODE_VALUE);
    json_node_set_string(node, text.c_str());
    g_autofree char* json = json_to_string(node, FALSE);
    return json;
}

std::vector<guint32> ToElements(JsonNode* array, guint32 max)
{
    std::vector<guint32> elements;
    JsonArray* nodes = json_node_get_array(array);
    for (guint i = 0; i < json_array_get_length(nodes); ++i) {
        JsonNode* node = json_array_get_element(nodes, i);
        if (!Holds(node, G_TYPE_INT64) || json_node_get_int(node) < 0 ||
            json_node_get_int(node) > gint64{max}) {
            throw Failure("an element is no number from 0 to " + std::to_string(max));
        }
        elements.push_back(static_cast<guint32>(json_node_get_int(node)));
    }
    return elements;
}

std::string ReadFile(const std::string& what, const std::string& path)
{
    g_autofree char* text = nullptr;
    gsize size = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_file_get_contents(path.c_str(), &text, &size, &error)) {
        throw Failure(what + " " + path + ": " + error->message);
    }
    return {text, size};
}

void WriteFile(const std::string& path, const std::string& text)
{
    if (!(std::ofstream(path, std::ios::binary) << text << std::flush)) {
        throw Failure("cannot write " + path + ": " + g_strerror(errno));
    }
}

}  // namespace fa::set
