#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPHelperError.h>

namespace qbdkr {

Error QBHPHelperError::errorWithCode(Text code, Text description) {
  if (!description) throw InvalidArgumentException("an error needs a description");
  return {HelperCommunicateErrorDomain,
          intValue(code.value_or("")),
          {{HelperCommunicateErrorDescription, std::string(*description)}}};
}

std::optional<Error> QBHPHelperError::reported(Text code, Text description) {
  if (intValue(code.value_or("")) == 0) return std::nullopt;
  return errorWithCode(code, description);
}

}  // namespace qbdkr
