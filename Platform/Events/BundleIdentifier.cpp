#include "Platform/Events/BundleIdentifier.h"

#include <ClientComm/Bundle.h>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

bool isBundleIdentifier(std::string_view text) {
  return !text.empty() && text.size() <= longestBundleIdentifier && isSendable(text) &&
         text.front() != '.' && text.back() != '.' && text.find("..") == std::string_view::npos;
}

std::optional<std::string> bundleIdentifierOf(const ProcessSerialNumber& number) {
  const auto information = copyProcessInformation(number);
  auto identifier = information ? information->text(kCFBundleIdentifierKey) : std::nullopt;
  if (identifier && !isBundleIdentifier(*identifier)) identifier.reset();
  return identifier;
}

}  // namespace qbdkr
