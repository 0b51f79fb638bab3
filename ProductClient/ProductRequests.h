#pragma once

#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

#include "ClientComm/OutOfMemory.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "ProductClient/StartRecords.h"

namespace qbdkr {

// How a host names its product in requests.
struct ProductIdentity {
  String identifier;
  String version;
};

// Makes the requests of the services with the product's identity before the arguments:
// post(&QBHPHelperControl::start). Throws nothing: without memory, for the identity's texts too, a
// request is refused with paramErr or has no answer. Any thread.
class ProductRequests {
 public:
  explicit ProductRequests(StartRecords& records) : records_(records) {}

  void setProduct(ProductIdentity product);

  // The status of a request that does not wait.
  template <class Method, class... Arguments>
  OSErr post(Method method, const Arguments&... arguments) const {
    return paramErrWithoutMemory([&] { return request(product(), method, arguments...); });
  }

  // The same for the product under which usage data is collected. Reads the settings.
  template <class Method, class... Arguments>
  OSErr postForData(Method method, const Arguments&... arguments) const {
    return paramErrWithoutMemory([&] { return request(productOfData(), method, arguments...); });
  }

  // The answer to a request, for which it waits.
  template <class Method>
  [[nodiscard]] String ask(Method method) const {
    return withoutMemory(String(), [&] { return request(product(), method); });
  }

 private:
  [[nodiscard]] ProductIdentity product() const;
  [[nodiscard]] ProductIdentity productOfData() const;

  template <class Result, class Service, class... Parameters, class... Arguments>
  static Result request(const ProductIdentity& identity,
                        Result (Service::*method)(Text, Text, Parameters...),
                        const Arguments&... arguments) {
    return (Service::share().*method)(view(identity.identifier), view(identity.version),
                                      arguments...);
  }

  StartRecords& records_;
  mutable ForkSafeMutex mutex_;
  ProductIdentity product_;
};

}  // namespace qbdkr
