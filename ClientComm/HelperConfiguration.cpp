#include "ClientComm/HelperConfiguration.h"

#include <string>
#include <utility>

#include "ClientComm/InfoKeys.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Files/Files.h"

namespace qbdkr {
namespace {

String infoText(std::string_view key, std::string_view otherKey) {
  auto value = Bundle::main().infoString(key);
  return value ? value : Bundle::main().infoString(otherKey);
}

String infoPath(std::string_view key) {
  const auto value = Bundle::main().infoString(key);
  return value && !value->empty() ? String(expandTilde(*value)) : std::nullopt;
}

}  // namespace

String HelperConfiguration::installedCopy() const {
  if (!appName || !installDirectory) return std::nullopt;
  return appendPathComponent(*installDirectory, *appName) + ".app";
}

HelperConfiguration helperConfiguration() {
  auto directory = infoPath(infokey::helperLoactionPath);
  if (!directory) directory = infoPath(infokey::helperLocationPath);
  return {Bundle::main().infoString(infokey::helperBundleIdentifier),
          infoText(infokey::heleprAppName, infokey::helperAppName), std::move(directory)};
}

bool helperMustBeInstalledCopy() {
  const PropertyList* required =
      Bundle::main().objectForInfoDictionaryKey(infokey::helperMustBeInstalledCopy);
  return required != nullptr && boolValue(*required);
}

}  // namespace qbdkr
