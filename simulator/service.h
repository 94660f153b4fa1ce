// The automation service: answers the twelve methods and announces what the lines receive.
#pragma once

#include <fa_api/automation_api_binding.h>

#include <functional>
#include <string>

#include "faults.h"
#include "options.h"
#include "protocol_queue.h"
#include "recorder.h"
#include "simulator_control.h"

namespace fa
{

class Service
{
public:
    // Opens the lines and joins the bus; `onLost` is called with the reason when the bus is gone
    // for good. Throws Failure.
    Service(const Options& options, std::function<void(const std::string&)> onLost);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Throws Failure where a call is missing in the record.
    void CheckRecord() const;

private:
    struct Method;
    struct LateReply;

    static const Method* FindMethod(const std::string& name);

    // The bus.
    void Connect();
    GVariant* CallBus(const char* method, GVariant* arguments);
    void RefuseTakenName();
    void OwnName();
    void Leave();
    static void OnClosed(GDBusConnection*, gboolean, GError* error, gpointer self);
    static gboolean OnLeave(gpointer self);
    static gboolean OnRejoin(gpointer self);
    void RestartTimer(guint& timer, guint milliseconds, GSourceFunc function);
    static void OnCall(GClosure* closure, GValue* handled, guint count, const GValue* values,
                       gpointer hint, gpointer data);
    void Answer(const Method& method, GDBusMethodInvocation* invocation);
    static gboolean OnLateReply(gpointer late);

    // The control interface.
    template <typename Request>
    static gboolean Attempt(GDBusMethodInvocation* invocation, Request request);
    static gboolean OnGetCalls(SimulatorControl* control, GDBusMethodInvocation* invocation,
                               gpointer self);
    static gboolean OnForgetCalls(SimulatorControl* control, GDBusMethodInvocation* invocation,
                                  gpointer self);
    static gboolean OnWritePacket(SimulatorControl* control, GDBusMethodInvocation* invocation,
                                  const char* line, GVariant* bytes, gpointer self);
    void WritePacket(const std::string& line, GVariant* bytes);
    static gboolean OnSetFault(SimulatorControl*, GDBusMethodInvocation* invocation,
                               const char* target, const char* kind, gint value, guint times,
                               gpointer self);
    static gboolean OnClearFaults(SimulatorControl*, GDBusMethodInvocation* invocation,
                                  gpointer self);
    void SetFault(const FaultRequest& request);

    // The methods: each does what it is asked for and returns its result.
    int SendRs232Ack(GVariant* arguments);
    int SendMessageByExUart(GVariant* arguments);
    int SendRjpData(GVariant* arguments);
    int ExecuteCommand(GVariant* arguments);
    int ExecuteCommandWithData(GVariant* arguments);
    int CloseExUart(GVariant* arguments);
    int ChangeBaudRateExUart(GVariant* arguments);
    int ChangePacketLengthSerialSource(GVariant* arguments);
    int CopyLogToUsb(GVariant* arguments);

    ProtocolQueue* FindQueue(const std::string& name);

    const Options options;
    const std::function<void(const std::string&)> lost;
    Faults faults;
    Recorder recorder;
    AutomationProxy* skeleton = automation_proxy_skeleton_new();
    SimulatorControl* control = simulator_control_skeleton_new();
    GDBusConnection* connection = nullptr;
    guint absence = 0;  // milliseconds
    guint leaveTimer = 0;
    guint rejoinTimer = 0;
    SerialLine uart;
    ProtocolQueue ss;
    ProtocolQueue rjp;
    ProtocolQueue ep;
};

}  // namespace fa
