#include "ClientComm/HostConfiguration.h"

#include <utility>

#include "ClientComm/InfoKeys.h"
#include "Platform/Files/Files.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

String pathIn(const Bundle& host, std::string_view key) {
  const auto value = host.infoString(key);
  return value && !value->empty() ? String(expandTilde(*value)) : std::nullopt;
}

}  // namespace

HostConfiguration::HostConfiguration(Bundle host) : host_(std::move(host)) {}

String HostConfiguration::productID() const { return host_.infoString(infokey::productID); }

String HostConfiguration::productVersion() const { return host_.infoString(kCFBundleVersionKey); }

String HostConfiguration::helperIdentifier() const {
  return host_.infoString(infokey::helperBundleIdentifier);
}

String HostConfiguration::helperName() const {
  auto name = host_.infoString(infokey::heleprAppName);
  return name ? name : host_.infoString(infokey::helperAppName);
}

String HostConfiguration::helperResource() const {
  const auto name = helperName();
  return name ? host_.pathForResource(*name, "app") : std::nullopt;
}

String HostConfiguration::installDirectory() const {
  auto directory = pathIn(host_, infokey::helperLoactionPath);
  return directory ? directory : pathIn(host_, infokey::helperLocationPath);
}

String HostConfiguration::installedHelper() const {
  const auto directory = installDirectory();
  const auto name = helperName();
  if (!directory || !name) return std::nullopt;
  return appendPathComponent(*directory, *name) + ".app";
}

bool HostConfiguration::requiresInstalledHelper() const {
  return flag(infokey::helperMustBeInstalledCopy);
}

bool HostConfiguration::supervisesHelper() const { return flag(infokey::helperIsSupervised); }

bool HostConfiguration::putsHelperInOwnScope() const { return flag(infokey::helperInOwnScope); }

void HostConfiguration::recordKeys() const {
  for (const std::string_view key :
       {kCFBundleIdentifierKey, kCFBundleVersionKey, infokey::productID,
        infokey::helperBundleIdentifier, infokey::heleprAppName, infokey::helperAppName,
        infokey::helperLoactionPath, infokey::helperLocationPath,
        infokey::helperMustBeInstalledCopy, infokey::helperIsSupervised,
        infokey::helperInOwnScope}) {
    if (const auto value = host_.infoString(key)) record(StepKind::keyRead, key, *value);
  }
  const auto recordMissing = [](bool isThere, std::string_view key) {
    if (!isThere) record(StepKind::keyMissing, key);
  };
  recordMissing(host_.infoString(kCFBundleIdentifierKey).has_value(), kCFBundleIdentifierKey);
  recordMissing(helperIdentifier().has_value(), infokey::helperBundleIdentifier);
  recordMissing(helperName().has_value(), infokey::heleprAppName);
  recordMissing(installDirectory().has_value(), infokey::helperLoactionPath);
}

bool HostConfiguration::flag(std::string_view key) const {
  const PropertyList* value = host_.objectForInfoDictionaryKey(key);
  return value != nullptr && boolValue(*value);
}

}  // namespace qbdkr
