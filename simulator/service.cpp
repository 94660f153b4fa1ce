#include "service.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "event_sources.h"
#include "log_copy.h"
#include "profile_state.h"

namespace fa
{

namespace
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";
constexpr char kNameTaken[] = "bus: org.kavra.tv.automation-service is taken by another process";
constexpr char kErrorName[] = "org.kavra.tv.automationservice.Simulator.Fault";
constexpr char kAllMethods[] = "all";
constexpr int kDone = 1;
constexpr int kRefused = 0;
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

int Send(SerialLine& line, const Bytes& bytes)
{
    return !bytes.empty() && line.Send(bytes) ? kDone : kRefused;
}

GVariant* NewData(const Bytes& bytes)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("au"));
    g_variant_builder_add(&builder, "u", static_cast<guint32>(bytes.size()));
    for (const unsigned char byte : bytes) {
        g_variant_builder_add(&builder, "u", guint32{byte});
    }
    return g_variant_builder_end(&builder);
}

GVariant* NewEmptyData()
{
    return g_variant_new_array(G_VARIANT_TYPE_UINT32, nullptr, 0);
}

Bytes LongPacket(int count)
{
    Bytes bytes(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    return bytes;
}

}  // namespace

// One row of the contract. A method that fetches has a protocol instead of work to do.
struct Service::Method {
    const char* name;
    int (Service::*work)(GVariant* arguments);
    ProtocolQueue Service::*fetched;
};

const Service::Method* Service::FindMethod(const std::string& name)
{
    static const Method methods[] = {
        {"SendRS232Ack", &Service::SendRs232Ack, nullptr},
        {"SendMessageByExUart", &Service::SendMessageByExUart, nullptr},
        {"SendRjpData", &Service::SendRjpData, nullptr},
        {"ExecuteCommand", &Service::ExecuteCommand, nullptr},
        {"ExecuteCommandWithData", &Service::ExecuteCommandWithData, nullptr},
        {"GetEpProtocolData", nullptr, &Service::ep},
        {"GetRjpProtocolData", nullptr, &Service::rjp},
        {"GetSsProtocolData", nullptr, &Service::ss},
        {"CloseExUart", &Service::CloseExUart, nullptr},
        {"ChangeBaudRateExUart", &Service::ChangeBaudRateExUart, nullptr},
        {"ChangePacketLengthSerialSource", &Service::ChangePacketLengthSerialSource, nullptr},
        {"CopyLogToUsb", &Service::CopyLogToUsb, nullptr},
    };
    const auto* const found = std::find_if(std::begin(methods), std::end(methods),
                                           [&](const Method& each) { return name == each.name; });
    return found != std::end(methods) ? found : nullptr;
}

struct Service::LateReply {
    GDBusMethodInvocation* invocation;
    GVariant* reply;
};

Service::Service(const Options& theOptions, std::function<void(const std::string&)> onLost)
    : options(theOptions),
      lost(std::move(onLost)),
      recorder(options.record),
      uart("uart", options.Link("uart"),
           [](const Bytes& bytes) {
               Say("line uart received %s, which nobody asked for", Describe(bytes).c_str());
           }),
      ss("ss", options.Link("ss"), options.gapMs,
         [this](const std::string& text) {
             automation_proxy_emit_ss_handler(skeleton, text.c_str());
         }),
      rjp("rjp", options.Link("rjp"), options.gapMs,
          [this](const std::string& text) {
              automation_proxy_emit_rjp_handler(skeleton, text.c_str());
          }),
      ep("ep", options.Link("ep"), options.gapMs, [this](const std::string& text) {
          automation_proxy_emit_ep_handler(skeleton, text.c_str());
      })
{
    if (!options.profile.empty()) {
        CheckProfile(options.profile);
    }
    for (const FaultRequest& request : options.faults) {
        SetFault(request);
    }
    // One handler for all methods: their signals are those whose names say so.
    guint count = 0;
    g_autofree guint* ids = g_signal_list_ids(TYPE_AUTOMATION_PROXY, &count);
    for (guint i = 0; i < count; ++i) {
        if (g_str_has_prefix(g_signal_name(ids[i]), "handle-") != FALSE) {
            GClosure* closure = g_closure_new_simple(sizeof(GClosure), this);
            g_closure_set_marshal(closure, OnCall);
            g_signal_connect_closure_by_id(skeleton, ids[i], 0, closure, FALSE);
        }
    }
    g_signal_connect(control, "handle-set-fault", G_CALLBACK(OnSetFault), this);
    g_signal_connect(control, "handle-clear-faults", G_CALLBACK(OnClearFaults), this);
    g_signal_connect(control, "handle-get-calls", G_CALLBACK(OnGetCalls), this);
    g_signal_connect(control, "handle-forget-calls", G_CALLBACK(OnForgetCalls), this);
    g_signal_connect(control, "handle-write-packet", G_CALLBACK(OnWritePacket), this);
    // The links of a set that is there already stay its own, and whoever sees the name finds the
    // lines.
    Connect();
    RefuseTakenName();
    for (SerialLine* line : {&uart, &ss.line, &rjp.line, &ep.line}) {
        line->Open();
    }
    OwnName();
}

Service::~Service()
{
    Leave();
    StopSource(leaveTimer);
    StopSource(rejoinTimer);
    g_object_unref(control);
    g_object_unref(skeleton);
}

void Service::CheckRecord() const
{
    if (!recorder.Shortfall().empty()) {
        throw Failure(recorder.Shortfall());
    }
}

// ---- The bus ----------------------------------------------------------------------------------

void Service::Connect()
{
    GError* error = nullptr;
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (error == nullptr) {
        constexpr auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        connection =
            g_dbus_connection_new_for_address_sync(address, flags, nullptr, nullptr, &error);
    }
    for (void* each : {static_cast<void*>(skeleton), static_cast<void*>(control)}) {
        if (error == nullptr) {
            g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(each), connection,
                                             kObjectPath, &error);
        }
    }
    if (error != nullptr) {
        Leave();
        ThrowError("bus", error);
    }
    g_signal_connect(connection, "closed", G_CALLBACK(OnClosed), this);
}

GVariant* Service::CallBus(const char* method, GVariant* arguments)
{
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        Leave();
        ThrowError("bus", error);
    }
    return reply;
}

void Service::RefuseTakenName()
{
    g_autoptr(GVariant) reply = CallBus("NameHasOwner", g_variant_new("(s)", kBusName));
    gboolean taken = FALSE;
    g_variant_get(reply, "(b)", &taken);
    if (taken != FALSE) {
        Leave();
        throw Failure(kNameTaken);
    }
}

void Service::OwnName()
{
    constexpr guint32 kDoNotQueue = 4;
    constexpr guint32 kPrimaryOwner = 1;
    g_autoptr(GVariant) reply =
        CallBus("RequestName", g_variant_new("(su)", kBusName, kDoNotQueue));
    guint32 verdict = 0;
    g_variant_get(reply, "(u)", &verdict);
    if (verdict != kPrimaryOwner) {
        Leave();
        throw Failure(kNameTaken);
    }
    Say("the service is on the bus");
    for (ProtocolQueue* queue : {&ss, &rjp, &ep}) {
        queue->AnnounceAgain();
    }
}

void Service::Leave()
{
    if (connection == nullptr) {
        return;
    }
    g_signal_handlers_disconnect_by_data(connection, this);
    for (void* each : {static_cast<void*>(skeleton), static_cast<void*>(control)}) {
        if (g_dbus_interface_skeleton_get_connection(G_DBUS_INTERFACE_SKELETON(each)) != nullptr) {
            g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(each));
        }
    }
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_clear_object(&connection);
}

void Service::OnClosed(GDBusConnection* /*connection*/, gboolean /*vanished*/, GError* error,
                       gpointer self)
{
    static_cast<Service*>(self)->lost(std::string("the bus is gone") +
                                      (error != nullptr ? std::string(": ") + error->message : ""));
}

gboolean Service::OnRejoin(gpointer self)
{
    auto* service = static_cast<Service*>(self);
    service->rejoinTimer = 0;
    try {
        service->Connect();
        service->OwnName();
    } catch (const Failure& failure) {
        service->lost(failure.what());
    }
    return G_SOURCE_REMOVE;
}

void Service::OnCall(GClosure* closure, GValue* handled, guint /*count*/, const GValue* values,
                     gpointer /*hint*/, gpointer /*data*/)
{
    auto* invocation = static_cast<GDBusMethodInvocation*>(g_value_get_object(&values[1]));
    const Method* method = FindMethod(g_dbus_method_invocation_get_method_name(invocation));
    if (method != nullptr) {
        static_cast<Service*>(closure->data)->Answer(*method, invocation);
    }
    // What is not handled GDBus answers: there is no such method.
    g_value_set_boolean(handled, method != nullptr);
}

// Takes over the invocation.
void Service::Answer(const Method& method, GDBusMethodInvocation* invocation)
{
    GVariant* arguments = g_dbus_method_invocation_get_parameters(invocation);
    std::optional<Fault> fault = faults.Take(method.name);
    if (!fault) {
        fault = faults.Take(kAllMethods);
    }
    const auto is = [&](FaultKind kind) { return fault && fault->kind == kind; };

    g_autoptr(GVariant) reply = nullptr;
    if (!is(FaultKind::kError) && !is(FaultKind::kNoAnswer)) {
        int result = is(FaultKind::kResult) ? fault->value : kDone;
        GVariant* data = nullptr;
        if (method.fetched != nullptr) {
            ProtocolQueue& queue = this->*method.fetched;
            const Bytes* oldest = queue.Oldest();
            if (is(FaultKind::kLong)) {
                data = NewData(LongPacket(fault->value));
            } else if (is(FaultKind::kEmpty) || result == kRefused || oldest == nullptr) {
                data = NewEmptyData();
                result = is(FaultKind::kEmpty) || is(FaultKind::kResult) ? result : kRefused;
            } else {
                data = NewData(*oldest);
            }
            if (result != kRefused && oldest != nullptr) {
                queue.RemoveOldest();
            }
        } else if (result != kRefused) {
            const int own = (this->*method.work)(arguments);
            result = is(FaultKind::kResult) ? result : own;
        }
        GVariant* ret = g_variant_new("(i)", result);
        GVariant* parts[] = {data, ret};
        reply = g_variant_ref_sink(data != nullptr ? g_variant_new_tuple(parts, 2)
                                                   : g_variant_new_tuple(&ret, 1));
    }
    Say("%s(%s) -> %s%s%s", method.name, Describe(arguments).c_str(),
        reply != nullptr ? Describe(reply).c_str() : "nothing", fault ? ", fault: " : "",
        fault ? fault->name : "");
    simulator_control_emit_called(
        control, recorder
                     .Write(g_dbus_method_invocation_get_method_info(invocation), arguments, reply,
                            fault ? fault->name : nullptr)
                     .c_str());

    if (is(FaultKind::kError)) {
        g_dbus_method_invocation_return_dbus_error(invocation, kErrorName, "a fault on demand");
    } else if (is(FaultKind::kNoAnswer)) {
        g_object_unref(invocation);
    } else if (is(FaultKind::kDelay)) {
        g_timeout_add(static_cast<guint>(fault->value), OnLateReply,
                      new LateReply{invocation, g_variant_ref(reply)});
    } else {
        g_dbus_method_invocation_return_value(invocation, reply);
    }
}

gboolean Service::OnLateReply(gpointer late)
{
    const std::unique_ptr<LateReply> owned(static_cast<LateReply*>(late));
    g_dbus_method_invocation_return_value(owned->invocation, owned->reply);
    g_variant_unref(owned->reply);
    return G_SOURCE_REMOVE;
}

// ---- The control interface --------------------------------------------------------------------

// Does what is asked for and answers it, or says what is wrong with it.
template <typename Request>
gboolean Service::Attempt(GDBusMethodInvocation* invocation, Request request)
{
    try {
        request();
    } catch (const Failure& failure) {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.DBus.Error.InvalidArgs", failure.what());
    }
    return TRUE;
}

gboolean Service::OnGetCalls(SimulatorControl* control, GDBusMethodInvocation* invocation,
                             gpointer self)
{
    std::vector<const char*> calls;
    for (const std::string& call : static_cast<Service*>(self)->recorder.Calls()) {
        calls.push_back(call.c_str());
    }
    calls.push_back(nullptr);
    simulator_control_complete_get_calls(control, invocation, calls.data());
    return TRUE;
}

gboolean Service::OnForgetCalls(SimulatorControl* control, GDBusMethodInvocation* invocation,
                                gpointer self)
{
    static_cast<Service*>(self)->recorder.ForgetCalls();
    simulator_control_complete_forget_calls(control, invocation);
    return TRUE;
}

gboolean Service::OnWritePacket(SimulatorControl* control, GDBusMethodInvocation* invocation,
                                const char* line, GVariant* bytes, gpointer self)
{
    return Attempt(invocation, [&] {
        static_cast<Service*>(self)->WritePacket(line, bytes);
        simulator_control_complete_write_packet(control, invocation);
    });
}

void Service::WritePacket(const std::string& line, GVariant* bytes)
{
    if (line != "ss" && line != "rjp" && line != "ep") {
        throw Failure("packets come in on ss, rjp and ep, not on \"" + line + "\"");
    }
    gsize count = 0;
    const auto* elements =
        static_cast<const guint8*>(g_variant_get_fixed_array(bytes, &count, sizeof(guint8)));
    if (count == 0 || count > kMostPacketBytes) {
        throw Failure("a packet has 1 to 256 bytes, not " + std::to_string(count));
    }
    FindQueue(line)->Push(Bytes(elements, elements + count));
}

gboolean Service::OnSetFault(SimulatorControl* control, GDBusMethodInvocation* invocation,
                             const char* target, const char* kind, gint value, guint times,
                             gpointer self)
{
    return Attempt(invocation, [&] {
        static_cast<Service*>(self)->SetFault({target, kind, value, times});
        simulator_control_complete_set_fault(control, invocation);
    });
}

gboolean Service::OnClearFaults(SimulatorControl* control, GDBusMethodInvocation* invocation,
                                gpointer self)
{
    static_cast<Service*>(self)->faults.Clear();
    Say("all faults are taken back");
    simulator_control_complete_clear_faults(control, invocation);
    return TRUE;
}

void Service::SetFault(const FaultRequest& request)
{
    const Fault fault = CheckFault(request);
    if (fault.kind == FaultKind::kBurst) {
        ProtocolQueue& queue = *FindQueue(request.target);
        for (int i = 0; i < fault.value; ++i) {
            queue.Push(Bytes{static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i)});
        }
        return;
    }
    if (fault.kind == FaultKind::kLeave) {
        absence = static_cast<guint>(fault.value);
        RestartTimer(leaveTimer, 0, OnLeave);  // behind the answer to whoever asks for it
        return;
    }
    if (request.target != kAllMethods && FindMethod(request.target) == nullptr) {
        throw UsageError("fault: there is no method " + request.target);
    }
    Say("fault of %s: %s", request.target.c_str(), Describe(fault).c_str());
    faults.Set(request.target, fault);
}

gboolean Service::OnLeave(gpointer self)
{
    auto* service = static_cast<Service*>(self);
    service->leaveTimer = 0;
    Say("the service leaves the bus for %u ms", service->absence);
    service->Leave();
    service->RestartTimer(service->rejoinTimer, service->absence, OnRejoin);
    return G_SOURCE_REMOVE;
}

void Service::RestartTimer(guint& timer, guint milliseconds, GSourceFunc function)
{
    StopSource(timer);
    timer = milliseconds != 0 ? g_timeout_add(milliseconds, function, this)
                              : g_idle_add(function, this);
}

// ---- The methods ------------------------------------------------------------------------------

int Service::SendRs232Ack(GVariant* arguments)
{
    SerialLine* const lines[] = {&uart, &ss.line, &rjp.line, &ep.line, &uart};
    const int type = NumberAt(arguments, 0);
    if (type < 0 || type >= static_cast<int>(std::size(lines))) {
        Say("refused: no line has the protocol type %d", type);
        return kRefused;
    }
    return Send(*lines[type], BytesAt(arguments, 2, NumberAt(arguments, 1)));
}

int Service::SendMessageByExUart(GVariant* arguments)
{
    return Send(uart, BytesAt(arguments, 1, NumberAt(arguments, 0)));
}

int Service::SendRjpData(GVariant* arguments)
{
    return Send(rjp.line, BytesAt(arguments, 1, NumberAt(arguments, 0)));
}

int Service::ExecuteCommand(GVariant* /*arguments*/)
{
    return kDone;
}

int Service::ExecuteCommandWithData(GVariant* arguments)
{
    const Bytes data = BytesAt(arguments, 2, NumberAt(arguments, 3));
    if (data.empty()) {
        return kRefused;
    }
    if (NumberAt(arguments, 0) != kLocalSetData0 || NumberAt(arguments, 1) != kLocalSetData1) {
        return kDone;
    }
    const std::optional<unsigned int> number = FindLocalSet(data);
    if (!number) {
        Say("refused: no such local set");
        return kRefused;
    }
    if (options.profile.empty()) {
        Say("refused: there is no profile to change");
        return kRefused;
    }
    try {
        StoreLocalSet(options.profile, *number);
    } catch (const Failure& failure) {
        Say("refused: %s", failure.what());
        return kRefused;
    }
    Say("the local set is %u now", *number);
    return kDone;
}

int Service::CloseExUart(GVariant* /*arguments*/)
{
    uart.Close();
    return kDone;
}

// Also opens the line again.
int Service::ChangeBaudRateExUart(GVariant* arguments)
{
    const int rate = NumberAt(arguments, 0);
    if (rate != 9600 && rate != 115200) {
        return kRefused;
    }
    try {
        if (!uart.IsOpen()) {
            uart.Open();
        }
    } catch (const Failure& failure) {
        Say("refused: %s", failure.what());
        return kRefused;
    }
    return uart.SetSpeed(rate == 9600 ? B9600 : B115200) ? kDone : kRefused;
}

int Service::ChangePacketLengthSerialSource(GVariant* arguments)
{
    const int length = NumberAt(arguments, 0);
    if (length < 0 || length > static_cast<int>(kMostPacketBytes)) {
        Say("refused: a packet of 0 (no fixed length) to %zu bytes is possible", kMostPacketBytes);
        return kRefused;
    }
    ss.SetPacketLength(static_cast<std::size_t>(length));
    return kDone;
}

int Service::CopyLogToUsb(GVariant* /*arguments*/)
{
    return CopyLogs(options.logFolder, options.usbFolder) ? kDone : kRefused;
}

ProtocolQueue* Service::FindQueue(const std::string& name)
{
    return name == "ss" ? &ss : name == "rjp" ? &rjp : &ep;
}

}  // namespace fa
