#pragma once

#include <new>
#include <stdexcept>
#include <type_traits>

#include <ClientComm/Status.h>

namespace qbdkr {

// Returns the result of the call, or the given one if memory runs out. A text longer than any
// memory throws length_error.
template <class Call>
std::invoke_result_t<Call> withoutMemory(std::invoke_result_t<Call> otherwise, const Call& call) {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return otherwise;
  } catch (const std::length_error&) {
    return otherwise;
  }
}

// Returns the status of a request; paramErr, as for any text that cannot be sent, if memory runs
// out.
template <class Request>
OSErr paramErrWithoutMemory(const Request& request) {
  return withoutMemory(paramErr, request);
}

}  // namespace qbdkr
