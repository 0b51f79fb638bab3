#include <ClientComm/Exceptions.h>

namespace qbdkr {

// Defines the destructors here: each type then has one identity in all libraries that throw or
// catch it.
RangeException::~RangeException() = default;
UnrecognizedSelectorException::~UnrecognizedSelectorException() = default;
InvalidArgumentException::~InvalidArgumentException() = default;

}  // namespace qbdkr
