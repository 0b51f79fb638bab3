#pragma once

#include <initializer_list>
#include <string_view>

#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// What every request of a service to the helper agent has in common: the class name of the service,
// the method's own name, and its arguments in order, absent ones as "". They throw nothing: without
// memory for its texts a request is refused with paramErr, or has no answer.

// Writes the log line of a request: the method's name and the arguments as they were passed, filled
// into the format.
void logRequest(std::string_view format, Selector method, std::initializer_list<Text> arguments);

// Posts a request; the status of the send.
OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

// The same, with a log line before.
OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments, std::string_view logFormat);

// Sends a request and waits for the reply, without limit; absent when no text came back.
String askRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

}  // namespace qbdkr
