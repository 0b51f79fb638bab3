#pragma once

#include <initializer_list>

#include "ClientComm/QBHPAppEventBase.h"
#include "ClientComm/Selector.h"
#include "ClientComm/Text.h"
#include "Platform/Status.h"

namespace qbdkr {

// What every request of a service to the helper agent has in common: the class name of the service,
// the method's own name, and its arguments in order, absent ones as "".

// Posts a request; the status of the send.
OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

// Sends a request and waits for the reply, without limit; absent when no text came back.
String askRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

}  // namespace qbdkr
