// The contract with clients: the service's names, its methods and the form of their values.
#pragma once

#include <gio/gio.h>

#include <memory>
#include <optional>
#include <string>

#include "set/state.h"

namespace fa::set
{

constexpr char kBusName[] = "org.kavra.tv.automation-service";
constexpr char kObjectPath[] = "/KVFacAutoObj";
constexpr char kFaultError[] = "org.kavra.tv.automationservice.Simulator.Fault";
constexpr int kDone = 1;
constexpr int kRefused = 0;

// A value that is held by all who have a copy; null for none.
using Variant = std::shared_ptr<GVariant>;
Variant Own(GVariant* value);  // takes over a floating reference

// The interface as its description has it, and one of its methods; null where there is none.
GDBusInterfaceInfo* ServiceInterface();
const GDBusMethodInfo* FindMethod(const std::string& name);

// What the set does for a call: the result. Not for the methods that fetch.
int Work(State& set, const std::string& method, GVariant* arguments);

// An `au`: the elements as they are; or the packet as a fetch gives it, its size before its bytes.
GVariant* NewArray(const std::vector<guint32>& elements);
GVariant* NewPacket(const Bytes& bytes);

// The reply to a call: the result, and before it the data of a fetch, if any; floating.
GVariant* NewReply(GVariant* data, int result);

}  // namespace fa::set
