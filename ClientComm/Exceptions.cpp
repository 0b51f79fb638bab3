#include <ClientComm/Exceptions.h>

namespace qbdkr {

// Defined here, so that each type has one identity across the libraries that throw and catch it.
RangeException::~RangeException() = default;
UnrecognizedSelectorException::~UnrecognizedSelectorException() = default;
InvalidArgumentException::~InvalidArgumentException() = default;

}  // namespace qbdkr
