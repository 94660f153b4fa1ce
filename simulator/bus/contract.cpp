#include "bus/contract.h"

#include <fa_api/automation_api_binding.h>

#include <algorithm>
#include <iterator>

namespace fa::set
{

namespace
{

constexpr int kLocalSetData0 = 82;
constexpr int kLocalSetData1 = 1;

int NumberAt(GVariant* arguments, gsize index)
{
    gint32 number = 0;
    g_variant_get_child(arguments, index, "i", &number);
    return number;
}

// The bytes of an `au` argument; nothing, which is refused, where an element is no byte or the
// count beside the array is not its length: a client that gets that wrong should learn of it.
Bytes BytesAt(GVariant* arguments, gsize index, int length)
{
    g_autoptr(GVariant) array = g_variant_get_child_value(arguments, index);
    gsize count = 0;
    const auto* elements =
        static_cast<const guint32*>(g_variant_get_fixed_array(array, &count, sizeof(guint32)));
    if (length <= 0 || count != static_cast<gsize>(length) ||
        std::any_of(elements, elements + count, [](guint32 element) { return element > 0xFF; })) {
        Say("refused: a length of %d beside %zu elements, or an element is no byte", length, count);
        return {};
    }
    return {elements, elements + count};
}

// ---- What each method does --------------------------------------------------------------------

bool SendRs232Ack(State& set, GVariant* arguments)
{
    const int type = NumberAt(arguments, 0);
    constexpr int kTypes = std::size(kLines);
    if (type < 0 || type > kTypes) {
        Say("refused: no line has the protocol type %d", type);
        return false;
    }
    // The type after those of the lines is the UART's once more.
    return set.Send(static_cast<Line>(type % kTypes),
                    BytesAt(arguments, 2, NumberAt(arguments, 1)));
}

bool SendMessageByExUart(State& set, GVariant* arguments)
{
    return set.Send(kUart, BytesAt(arguments, 1, NumberAt(arguments, 0)));
}

bool SendRjpData(State& set, GVariant* arguments)
{
    return set.Send(kRjp, BytesAt(arguments, 1, NumberAt(arguments, 0)));
}

bool ExecuteCommand(State& /*set*/, GVariant* /*arguments*/)
{
    return true;
}

bool ExecuteCommandWithData(State& set, GVariant* arguments)
{
    const Bytes data = BytesAt(arguments, 2, NumberAt(arguments, 3));
    const bool localSet =
        NumberAt(arguments, 0) == kLocalSetData0 && NumberAt(arguments, 1) == kLocalSetData1;
    return !data.empty() && (!localSet || set.StoreLocalSet(data));
}

bool CloseExUart(State& set, GVariant* /*arguments*/)
{
    set.CloseUart();
    return true;
}

bool ChangeBaudRateExUart(State& set, GVariant* arguments)
{
    const int rate = NumberAt(arguments, 0);
    return (rate == 9600 && set.ChangeUartSpeed(B9600)) ||
           (rate == 115200 && set.ChangeUartSpeed(B115200));
}

bool ChangePacketLengthSerialSource(State& set, GVariant* arguments)
{
    return set.ChangeSsPacketLength(NumberAt(arguments, 0));
}

bool CopyLogToUsb(State& set, GVariant* /*arguments*/)
{
    return set.CopyLogs();
}

const struct {
    const char* method;
    bool (*work)(State& set, GVariant* arguments);
} kWorks[] = {
    {"SendRS232Ack", SendRs232Ack},
    {"SendMessageByExUart", SendMessageByExUart},
    {"SendRjpData", SendRjpData},
    {"ExecuteCommand", ExecuteCommand},
    {"ExecuteCommandWithData", ExecuteCommandWithData},
    {"CloseExUart", CloseExUart},
    {"ChangeBaudRateExUart", ChangeBaudRateExUart},
    {"ChangePacketLengthSerialSource", ChangePacketLengthSerialSource},
    {"CopyLogToUsb", CopyLogToUsb},
};

}  // namespace

Variant Own(GVariant* value)
{
    return Variant(g_variant_ref_sink(value), g_variant_unref);
}

GDBusInterfaceInfo* ServiceInterface()
{
    return automation_proxy_interface_info();
}

const GDBusMethodInfo* FindMethod(const std::string& name)
{
    return g_dbus_interface_info_lookup_method(ServiceInterface(), name.c_str());
}

int Work(State& set, const std::string& method, GVariant* arguments)
{
    const auto* const found = std::find_if(std::begin(kWorks), std::end(kWorks),
                                           [&](const auto& row) { return method == row.method; });
    return found != std::end(kWorks) && found->work(set, arguments) ? kDone : kRefused;
}

GVariant* NewArray(const std::vector<guint32>& elements)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_UINT32, elements.data(), elements.size(),
                                     sizeof(guint32));
}

GVariant* NewPacket(const Bytes& bytes)
{
    std::vector<guint32> elements{static_cast<guint32>(bytes.size())};
    elements.insert(elements.end(), bytes.begin(), bytes.end());
    return NewArray(elements);
}

GVariant* NewReply(GVariant* data, int result)
{
    return data != nullptr ? g_variant_new("(@au(i))", data, result)
                           : g_variant_new("((i))", result);
}

}  // namespace fa::set
