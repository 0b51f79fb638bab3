#pragma once

#include <stdexcept>

#include <ClientComm/Export.h>

namespace qbdkr {

// Thrown for an index or a field that does not exist.
class QBDKR_EXPORT RangeException : public std::out_of_range {
 public:
  using std::out_of_range::out_of_range;
  ~RangeException() override;
};

// Thrown for a method that the object does not have.
class QBDKR_EXPORT UnrecognizedSelectorException : public std::logic_error {
 public:
  using std::logic_error::logic_error;
  ~UnrecognizedSelectorException() override;
};

// Thrown for a required argument that is absent, an argument of a wrong type, or too many of them.
class QBDKR_EXPORT InvalidArgumentException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
  ~InvalidArgumentException() override;
};

}  // namespace qbdkr
