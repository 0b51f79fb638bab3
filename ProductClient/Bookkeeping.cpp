// What is recorded in the host's user defaults at every start, and read back from them.

#include <string>
#include <utility>
#include <variant>

#include "ClientComm/InfoKeys.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Defaults/UserDefaults.h"
#include "Platform/Files/Files.h"
#include "Platform/Log/Log.h"
#include "ProductClient/QBHPHelperCommunicate.h"

namespace qbdkr {
namespace {

namespace defaultskey {
constexpr std::string_view productID = "PID";
constexpr std::string_view version = "Version";
constexpr std::string_view executableFile = "ExecutableFile";  // holds the bundle's path
constexpr std::string_view isFirstStart = "IsFirstStart";
constexpr std::string_view firstStartPID = "FirstStartPID";
constexpr std::string_view dataCollectPID = "DataCollectPID";
constexpr std::string_view dataCollectPath = "DataCollectPath";
}  // namespace defaultskey

std::optional<PropertyList> asValue(const String& text) {
  return text ? std::optional<PropertyList>(*text) : std::nullopt;
}

String textOf(const std::optional<PropertyList>& value) {
  return value ? value->text() : std::nullopt;
}

}  // namespace

void QBHPHelperCommunicate::synthesizeUserDefault() {
  auto identifier = Bundle::main().infoString(infokey::productID);
  auto version = Bundle::main().infoString(kCFBundleVersionKey);
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(defaultskey::productID, asValue(identifier));
  defaults.setObject(defaultskey::version, asValue(version));
  defaults.setObject(defaultskey::executableFile, PropertyList(Bundle::main().bundlePath()));
  {
    const std::lock_guard lock(mutex_);
    productID_ = std::move(identifier);
    productVersion_ = std::move(version);
  }
  defaults.synchronize();
}

String QBHPHelperCommunicate::firstStartPID() {
  UserDefaults& defaults = UserDefaults::standard();
  const auto first = defaults.object(defaultskey::isFirstStart);
  if (first && !boolValue(*first)) return textOf(defaults.object(defaultskey::firstStartPID));
  auto identifier = Bundle::main().infoString(infokey::productID);
  // In this order: another thread that finds the start recorded finds the product as well.
  defaults.setObject(defaultskey::firstStartPID, asValue(identifier));
  defaults.setObject(defaultskey::isFirstStart, PropertyList(false));
  defaults.synchronize();
  return identifier;
}

String QBHPHelperCommunicate::collectDataPID() {
  auto identifier = textOf(UserDefaults::standard().object(defaultskey::dataCollectPID));
  if (identifier && !identifier->empty()) return identifier;
  return firstStartPID();
}

void QBHPHelperCommunicate::setCollectDataPID(Text productID) {
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(defaultskey::dataCollectPID,
                     productID ? std::optional<PropertyList>(*productID) : std::nullopt);
  defaults.synchronize();
}

void QBHPHelperCommunicate::initDataCollectionPath(Text base) {
  if (!base || base->empty()) return;
  const std::string logs = appendPathComponent(*base, "Log");
  if (!fileExists(logs)) createDirectory(logs);
  const std::string data = appendPathComponent(logs, "Data");
  if (fileExists(data)) return;
  log("%@ DataCollectPath = %@", {kInitDataCollectionPath.text(), data});
  UserDefaults& defaults = UserDefaults::standard();
  defaults.setObject(defaultskey::dataCollectPath, PropertyList(data));
  // At once, and first: the path of a folder that exists already is never recorded again.
  defaults.synchronize();
  createDirectory(data);
}

}  // namespace qbdkr
