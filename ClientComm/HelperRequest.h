#pragma once

#include <initializer_list>
#include <string_view>

#include <ClientComm/QBHPAppEventBase.h>
#include <ClientComm/Request.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// The functions below make a service's request to the helper agent: the class name of the service,
// the full method name, and the arguments in order, absent ones as "". They throw nothing: without
// memory for its texts a request returns paramErr, or has no answer. Any thread.

// Logs a request: fills the method's name and the arguments as passed into the format.
void logRequest(std::string_view format, Selector method, std::initializer_list<Text> arguments);

// Posts a request, and returns the status of the send. Does not wait for the helper agent.
OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

// Does the same after a log line.
OSErr postRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments, std::string_view logFormat);

// Sends a request and waits for the reply, without limit; absent if the reply is empty or missing.
String askRequest(const QBHPAppEventBase& service, Selector method,
                  std::initializer_list<Text> arguments);

// Makes a request for the reply, and sends nothing. Throws std::bad_alloc.
Request<String> helperRequest(const QBHPAppEventBase& service, Selector method,
                              std::initializer_list<Text> arguments);

}  // namespace qbdkr
