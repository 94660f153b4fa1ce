#include "support/console.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "support/output.h"

namespace fa::set
{

namespace
{

constexpr std::size_t kShownElements = 32;

bool beQuiet = false;

// What nobody reads is given up for good when a signal comes: the rest of the way must not block.
void Print(const std::string& line)
{
    static const int output = OpenOutput(STDERR_FILENO);
    static bool unread = false;
    std::size_t written = 0;
    unread = unread || WriteAll(output, line, written) == EINTR;
}

template <typename Element>
std::string ToHex(const Element* elements, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char element[16];
        std::snprintf(element, sizeof(element), i == 0 ? "%02x" : " %02x",
                      static_cast<unsigned int>(elements[i]));
        text += element;
    }
    return text;
}

template <typename Element>
std::string DescribeArray(const Element* elements, std::size_t count)
{
    return count <= kShownElements ? "[" + ToHex(elements, count) + "]"
                                   : "[" + ToHex(elements, kShownElements) + " ... " +
                                         std::to_string(count) + " in all]";
}

}  // namespace

void SetQuiet(bool quiet)
{
    beQuiet = quiet;
}

bool IsQuiet()
{
    return beQuiet;
}

void Say(const char* format, ...)
{
    if (beQuiet) {
        return;
    }
    va_list values;
    va_start(values, format);
    g_autofree char* text = g_strdup_vprintf(format, values);
    va_end(values);
    Print(std::string("set: ") + text + "\n");
}

void Complain(const std::string& text)
{
    Print("fa-set-simulator: " + text + "\n");
}

std::string ToHex(const Bytes& bytes)
{
    return ToHex(bytes.data(), bytes.size());
}

std::string Describe(const Bytes& bytes)
{
    return DescribeArray(bytes.data(), bytes.size());
}

std::string Describe(GVariant* values)
{
    if (g_variant_is_of_type(values, G_VARIANT_TYPE("au"))) {
        gsize count = 0;
        const auto* elements =
            static_cast<const guint32*>(g_variant_get_fixed_array(values, &count, sizeof(guint32)));
        return DescribeArray(elements, count);
    }
    if (g_variant_is_of_type(values, G_VARIANT_TYPE_INT32)) {
        return std::to_string(g_variant_get_int32(values));
    }
    std::string text;
    for (gsize i = 0; i < g_variant_n_children(values); ++i) {
        g_autoptr(GVariant) child = g_variant_get_child_value(values, i);
        text += (i == 0 ? "" : ", ") + Describe(child);
    }
    return text;
}

}  // namespace fa::set
