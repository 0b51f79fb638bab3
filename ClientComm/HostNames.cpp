#include "ClientComm/HostNames.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <ClientComm/Exceptions.h>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// Returns one of the parts between the dots, counted from 0.
std::string part(std::string_view identifier, std::size_t index) {
  for (; index > 0; --index) {
    const auto dot = identifier.find('.');
    if (dot == std::string_view::npos) {
      throw RangeException("the bundle identifier has too few parts");
    }
    identifier.remove_prefix(dot + 1);
  }
  return std::string(identifier.substr(0, identifier.find('.')));
}

}  // namespace

HostNames::HostNames(std::function<String()> bundleIdentifier)
    : bundleIdentifier_(std::move(bundleIdentifier)) {}

String HostNames::brandName() {
  const std::lock_guard lock(mutex_);
  if (brandName_) return brandName_;
  const auto identifier = bundleIdentifier_();
  if (!identifier) return std::nullopt;
  brandName_ = lowercase(part(*identifier, 1));
  return brandName_;
}

String HostNames::helperName() {
  const std::lock_guard lock(mutex_);
  if (helperName_) return helperName_;
  const auto identifier = bundleIdentifier_();
  // Without an identifier both parts print as absent texts do.
  helperName_ =
      identifier ? lowercase(part(*identifier, 1) + ' ' + part(*identifier, 2)) : "(null) (null)";
  return helperName_;
}

}  // namespace qbdkr
