#pragma once

// How QBHPHelperCommunicate makes its requests: those of a service, with an identity of the host
// before the arguments. The identity is taken inside, because even its texts need memory.

#include "ClientComm/OutOfMemory.h"
#include "ClientComm/TextValue.h"
#include "ProductClient/QBHPHelperCommunicate.h"

namespace qbdkr {

template <class Result, class Service, class... Parameters, class... Arguments>
Result QBHPHelperCommunicate::requestAs(Identity identity, Result withoutAnyMemory,
                                        Result (Service::*method)(Text, Text, Parameters...),
                                        const Arguments&... arguments) {
  return withoutMemory(withoutAnyMemory, [&]() -> Result {
    const auto [identifier, version] = (this->*identity)();
    return (Service::share().*method)(view(identifier), view(version), arguments...);
  });
}

template <class Method, class... Arguments>
OSErr QBHPHelperCommunicate::post(Method method, const Arguments&... arguments) {
  return requestAs(&QBHPHelperCommunicate::product, paramErr, method, arguments...);
}

template <class Method, class... Arguments>
OSErr QBHPHelperCommunicate::checkAndPost(Method method, const Arguments&... arguments) {
  if (const OSErr status = autoRestartHelper(); status != noErr) return status;
  return post(method, arguments...);
}

template <class Method, class... Arguments>
OSErr QBHPHelperCommunicate::postForData(Method method, const Arguments&... arguments) {
  return requestAs(&QBHPHelperCommunicate::productOfData, paramErr, method, arguments...);
}

template <class Method>
String QBHPHelperCommunicate::ask(Method method) {
  return requestAs(&QBHPHelperCommunicate::product, String(), method);
}

}  // namespace qbdkr
