#include "recorder.h"

#include <fcntl.h>
#include <json-glib/json-glib.h>

#include <cerrno>
#include <utility>

#include "console.h"

namespace fa
{

namespace
{

constexpr std::size_t kMostCalls = 10'000;

// A reply is the result in its structure, behind the data where there is any.
void AddReply(JsonBuilder* builder, GVariant* reply)
{
    const gsize last = g_variant_n_children(reply) - 1;
    if (last > 0) {
        g_autoptr(GVariant) data = g_variant_get_child_value(reply, 0);
        json_builder_set_member_name(builder, "data");
        json_builder_add_value(builder, json_gvariant_serialize(data));
    }
    g_autoptr(GVariant) ret = g_variant_get_child_value(reply, last);
    gint32 result = 0;
    g_variant_get(ret, "(i)", &result);
    json_builder_set_member_name(builder, "result");
    json_builder_add_int_value(builder, result);
}

}  // namespace

Recorder::Recorder(std::string filePath) : path(std::move(filePath))
{
    if (path.empty()) {
        return;
    }
    // A FIFO without a reader is refused here, where blocking would be for good.
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (descriptor < 0 || fcntl(descriptor, F_SETFL, 0) != 0 ||
        (file = fdopen(descriptor, "w")) == nullptr) {
        throw Failure("record " + path + ": " +
                      (errno == ENXIO ? "nobody reads from it" : g_strerror(errno)));
    }
}

Recorder::~Recorder()
{
    if (file != nullptr) {
        std::fclose(file);
    }
}

const std::string& Recorder::Write(const GDBusMethodInfo* method, GVariant* arguments,
                                   GVariant* reply, const char* fault)
{
    g_autoptr(JsonBuilder) builder = json_builder_new();
    json_builder_begin_object(builder);
    json_builder_set_member_name(builder, "method");
    json_builder_add_string_value(builder, method->name);
    json_builder_set_member_name(builder, "arguments");
    json_builder_begin_object(builder);
    for (gsize i = 0; i < g_variant_n_children(arguments); ++i) {
        g_autoptr(GVariant) argument = g_variant_get_child_value(arguments, i);
        json_builder_set_member_name(builder, method->in_args[i]->name);
        json_builder_add_value(builder, json_gvariant_serialize(argument));
    }
    json_builder_end_object(builder);
    if (reply != nullptr) {
        AddReply(builder, reply);
    }
    if (fault != nullptr) {
        json_builder_set_member_name(builder, "fault");
        json_builder_add_string_value(builder, fault);
    }
    json_builder_end_object(builder);

    g_autoptr(JsonNode) root = json_builder_get_root(builder);
    g_autofree char* line = json_to_string(root, FALSE);
    if (file != nullptr && (std::fprintf(file, "%s\n", line) < 0 || std::fflush(file) != 0)) {
        shortfall = "record " + path + ": " + g_strerror(errno);
    }
    if (calls.size() == kMostCalls) {
        calls.pop_front();
    }
    return calls.emplace_back(line);
}

}  // namespace fa
