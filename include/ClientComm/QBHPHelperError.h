#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// An error that the helper agent reported.
struct Error {
  std::string domain;
  std::int32_t code = 0;
  std::map<std::string, std::string> userInfo;
};

inline constexpr const char* HelperCommunicateErrorDomain = "HelperCommunicateErrorDomain";
inline constexpr const char* HelperCommunicateErrorDescription =
    "HelperCommunicateErrorDescription";

class QBDKR_EXPORT QBHPHelperError {
 public:
  // The error of domain HelperCommunicateErrorDomain whose code is the integer value of a text (0
  // where it has none) and whose user information holds the description. Throws
  // InvalidArgumentException when the description is absent.
  [[nodiscard]] static Error errorWithCode(Text code, Text description);

  // The error that a report carries: none when the integer value of its code is 0.
  [[nodiscard]] static std::optional<Error> reported(Text code, Text description);
};

}  // namespace qbdkr
