// JSON, member by member.
#pragma once

#include <json-glib/json-glib.h>

#include <cstdint>
#include <optional>
#include <string>

namespace fa
{

// One object, written from its begin to its end.
class JsonWriter
{
public:
    JsonWriter() = default;

    ~JsonWriter() { g_object_unref(builder_); }

    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    // A member that is an object or a list, which `fill` fills.
    template <typename Fill>
    void Object(const char* name, Fill fill)
    {
        Name(name);
        json_builder_begin_object(builder_);
        fill();
        json_builder_end_object(builder_);
    }

    template <typename Rows, typename Fill>
    void List(const char* name, const Rows& rows, Fill fill)
    {
        Name(name);
        json_builder_begin_array(builder_);
        for (const auto& row : rows) {
            fill(row);
        }
        json_builder_end_array(builder_);
    }

    void Count(const char* name, std::uint64_t count)
    {
        Name(name);
        json_builder_add_int_value(builder_, static_cast<gint64>(count));
    }

    void Number(const char* name, const std::optional<double>& number)
    {
        Name(name);
        if (number) {
            json_builder_add_double_value(builder_, *number);
        } else {
            json_builder_add_null_value(builder_);
        }
    }

    void Text(const char* name, const std::string& text)
    {
        Name(name);
        json_builder_add_string_value(builder_, text.c_str());
    }

    std::string Finish(bool forPeople)
    {
        g_autoptr(JsonNode) root = json_builder_get_root(builder_);
        g_autofree char* text = json_to_string(root, forPeople ? TRUE : FALSE);
        return std::string(text) + "\n";
    }

private:
    // Rows of a list and the whole have no name.
    void Name(const char* name)
    {
        if (name != nullptr) {
            json_builder_set_member_name(builder_, name);
        }
    }

    JsonBuilder* const builder_ = json_builder_new();
};

}  // namespace fa
