#pragma once

#include <new>
#include <stdexcept>

#include "Platform/Status.h"

namespace qbdkr {

// The status of a request; paramErr, as for any text that cannot be sent, if there is no memory for
// it. A text longer than any memory is a length_error.
template <class Request>
OSErr paramErrWithoutMemory(const Request& request) {
  try {
    return request();
  } catch (const std::bad_alloc&) {
    return paramErr;
  } catch (const std::length_error&) {
    return paramErr;
  }
}

}  // namespace qbdkr
