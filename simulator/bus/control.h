// The control interface: what tests ask of the set.
#pragma once

#include "bus/presence.h"

namespace fa::set
{

class Service;

GDBusInterfaceInfo* ControlInterface();

// Does what is asked for, and answers.
void Control(Service& service, const Presence::Invocation& invocation);

}  // namespace fa::set
