#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Holds an error that the helper agent reported.
struct Error {
  std::string domain;                           // HelperCommunicateErrorDomain
  std::int32_t code = 0;                        // of the helper agent, not 0 in a report
  std::map<std::string, std::string> userInfo;  // HelperCommunicateErrorDescription: the message
};

// The domain of such errors, and the key of their message.
inline constexpr const char* HelperCommunicateErrorDomain = "HelperCommunicateErrorDomain";
inline constexpr const char* HelperCommunicateErrorDescription =
    "HelperCommunicateErrorDescription";

// Makes such errors. Any thread; does not block.
class QBDKR_EXPORT QBHPHelperError {
 public:
  // Returns an error of the domain HelperCommunicateErrorDomain. The intValue() of the text is its
  // code; 0 if the text is absent. The user information holds the description. Throws
  // InvalidArgumentException if the description is absent.
  [[nodiscard]] static Error errorWithCode(Text code, Text description);

  // Returns the error of a report, as errorWithCode() makes it; absent if its code is 0.
  [[nodiscard]] static std::optional<Error> reported(Text code, Text description);
};

}  // namespace qbdkr
