#pragma once

#include <ClientComm/Request.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

#include "ClientComm/OutOfMemory.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "ProductClient/StartRecords.h"

namespace qbdkr {

// The names of a host's product in requests.
struct ProductIdentity {
  String identifier;
  String version;
};

// Makes requests of the services with the product's identity before the arguments, as in
// post(&QBHPHelperControl::start). Throws nothing: if memory runs out, also for the identity's
// texts, a request returns paramErr or has no answer. Any thread.
class ProductRequests {
 public:
  explicit ProductRequests(StartRecords& records) : records_(records) {}

  void setProduct(ProductIdentity product);

  // Posts a request, and returns the status of the send.
  template <class Method, class... Arguments>
  OSErr post(Method method, const Arguments&... arguments) const {
    return paramErrWithoutMemory([&] { return request(product(), method, arguments...); });
  }

  // Does the same for the product under which usage data is collected. Blocks for the settings.
  template <class Method, class... Arguments>
  OSErr postForData(Method method, const Arguments&... arguments) const {
    return paramErrWithoutMemory([&] { return request(productOfData(), method, arguments...); });
  }

  // Makes a request, waits for its answer without limit, and returns it.
  template <class Method>
  [[nodiscard]] String ask(Method method) const {
    return withoutMemory(String(), [&] { return request(product(), method); });
  }

  // Makes a request that is not sent yet. Throws std::bad_alloc.
  template <class Service>
  [[nodiscard]] Request<String> make(Request<String> (Service::*method)(Text, Text) const) const {
    const auto identity = product();
    return (Service::share().*method)(view(identity.identifier), view(identity.version));
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
