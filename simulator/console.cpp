#include "console.h"

#include <cstdarg>
#include <cstdio>

namespace fa
{

namespace
{

constexpr std::size_t kShownElements = 32;

bool beQuiet = false;

template <typename Element>
std::string DescribeArray(const Element* elements, std::size_t count)
{
    std::string text = "[";
    for (std::size_t i = 0; i < count && i < kShownElements; ++i) {
        char element[16];
        std::snprintf(element, sizeof(element), i == 0 ? "%02x" : " %02x",
                      static_cast<unsigned int>(elements[i]));
        text += element;
    }
    if (count > kShownElements) {
        text += " ... " + std::to_string(count) + " in all";
    }
    return text + "]";
}

}  // namespace

void ThrowError(const std::string& what, GError* error)
{
    const std::string text = what + ": " + error->message;
    g_error_free(error);
    throw Failure(text);
}

void SetQuiet(bool quiet)
{
    beQuiet = quiet;
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
    std::printf("set: %s\n", text);
    std::fflush(stdout);
}

void Complain(const std::string& text)
{
    std::fprintf(stderr, "fa-set-simulator: %s\n", text.c_str());
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

}  // namespace fa
