#include "automation_interface/call_frame.h"

#include <algorithm>

namespace fa
{

void LogFailedCall(const CallNames& names, const GError* error)
{
    FA_LOG_FOR(names.function, kError, "ERR: %s return false", names.call);
    if (error != nullptr) {
        FA_LOG_FOR(names.function, names.errorPriority, "%s err[%s]", names.errorName,
                   error->message);
    }
}

int JudgeReply(const ServiceCall& row, GVariant* reply)
{
    gint32 retVal = 0;
    g_variant_get(reply, "(i)", &retVal);
    if (row.rule == ReplyRule::kNonZeroSucceeds && retVal == 0) {
        FA_LOG_FOR(row.names.function, kError, "NG retVal[%d]", retVal);
        return -1;
    }
    FA_LOG_FOR(row.names.function, kDebug, "OK retVal[%d]", retVal);
    return 0;
}

GVariant* NewByteArray(const unsigned char* bytes, unsigned int length)
{
    auto* elements = g_new(guint32, length);
    std::copy_n(bytes, length, elements);
    return g_variant_ref_sink(g_variant_new_from_data(
        G_VARIANT_TYPE("au"), elements, gsize{length} * sizeof(guint32), TRUE, g_free, elements));
}

}  // namespace fa
