// Text that holds a JSON object a line: scenarios and recordings.
#pragma once

#include <json-glib/json-glib.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "support/console.h"

namespace fa::set
{

// The members of one object. What is read is checked; what nobody has read is refused at the end.
class Members
{
public:
    explicit Members(JsonObject* object) : object_(object) {}

    // The member, or nothing where there is none. Throw Failure where it is something else.
    std::optional<std::string> Text(const std::string& name);
    std::optional<gint64> Integer(const std::string& name, gint64 min, gint64 max);
    std::optional<double> Number(const std::string& name, double min, double max);
    bool Flag(const std::string& name);
    std::optional<Members> Object(const std::string& name);
    JsonNode* Node(const std::string& name);

    bool Has(const std::string& name) const
    {
        return json_object_has_member(object_, name.c_str()) != FALSE;
    }
    std::vector<std::string> Names() const;

    // Throws Failure where a member has not been read.
    void Finish() const;

private:
    JsonObject* object_;
    std::set<std::string> read_;
};

// Calls the function for each line that is not empty, in order, with its number. What is wrong with
// a line, and a Failure of the function, becomes a Failure "NAME:LINE: reason".
void ReadJsonLines(const std::string& name, const std::string& text,
                   const std::function<void(std::size_t number, Members& members)>& function);

// The text as a JSON string, with its quotes.
std::string ToJson(const std::string& text);

// The integers of a JSON array, each from 0 to `max`. Throws Failure.
std::vector<guint32> ToElements(JsonNode* array, guint32 max);

// The file's text. Throws Failure.
std::string ReadFile(const std::string& what, const std::string& path);

// Writes a new file, where nobody else looks for it yet. Throws Failure.
void WriteFile(const std::string& path, const std::string& text);

}  // namespace fa::set
