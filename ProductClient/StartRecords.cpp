#include "ProductClient/StartRecords.h"

#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include <ClientComm/UserDefaults.h>

#include "Platform/Files/Files.h"

namespace qbdkr {
namespace {

namespace key {
constexpr std::string_view productID = "PID";
constexpr std::string_view version = "Version";
constexpr std::string_view executableFile = "ExecutableFile";  // holds the bundle's path
constexpr std::string_view isFirstStart = "IsFirstStart";
constexpr std::string_view firstStartPID = "FirstStartPID";
constexpr std::string_view dataCollectPID = "DataCollectPID";
constexpr std::string_view dataCollectPath = "DataCollectPath";
constexpr std::string_view installTime = "installTime";
}  // namespace key

std::optional<PropertyList> asValue(const String& text) {
  return text ? std::optional<PropertyList>(*text) : std::nullopt;
}

String textOf(const std::optional<PropertyList>& value) {
  return value ? value->text() : std::nullopt;
}

// Returns the local time as yyyyMMddHHmmss.
std::string stampOf(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%d%H%M%S", &local);
  return text.data();
}

struct ClearFlag {
  void operator()(std::atomic_flag* flag) const { flag->clear(); }
};

}  // namespace

StartRecords::StartRecords(HostConfiguration host, UserDefaults& settings,
                           std::function<std::time_t()> now)
    : host_(std::move(host)), settings_(settings), now_(std::move(now)) {}

void StartRecords::recordProduct() {
  settings_.setObject(key::productID, asValue(host_.productID()));
  settings_.setObject(key::version, asValue(host_.productVersion()));
  settings_.setObject(key::executableFile, PropertyList(host_.host().bundlePath()));
  settings_.synchronize();
}

String StartRecords::firstStartPID() {
  const auto first = settings_.object(key::isFirstStart);
  if (first && !boolValue(*first)) return textOf(settings_.object(key::firstStartPID));
  auto identifier = host_.productID();
  // The product comes first: a thread that finds the start recorded finds the product as well.
  settings_.setObject(key::firstStartPID, asValue(identifier));
  settings_.setObject(key::isFirstStart, PropertyList(false));
  settings_.synchronize();
  return identifier;
}

String StartRecords::collectDataPID() {
  auto identifier = textOf(settings_.object(key::dataCollectPID));
  if (identifier && !identifier->empty()) return identifier;
  return firstStartPID();
}

void StartRecords::setCollectDataPID(Text productID) {
  settings_.setObject(key::dataCollectPID,
                      productID ? std::optional<PropertyList>(*productID) : std::nullopt);
  settings_.synchronize();
}

void StartRecords::recordDataFolder(const std::string& folder) {
  settings_.setObject(key::dataCollectPath, PropertyList(folder));
  settings_.synchronize();
}

void StartRecords::recordInstallTime() {
  if (recordsInstallTime_.test_and_set()) return;
  const std::unique_ptr<std::atomic_flag, ClearFlag> cleared(&recordsInstallTime_);
  if (settings_.object(key::installTime)) return;
  settings_.setObject(key::installTime, PropertyList(stampOf(now_())));
  settings_.synchronize();
}

std::optional<std::string> missingDataFolder(Text directory) {
  if (!directory || directory->empty()) return std::nullopt;
  const std::string logs = appendPathComponent(*directory, "Log");
  if (!fileExists(logs)) createDirectory(logs);
  std::string data = appendPathComponent(logs, "Data");
  return fileExists(data) ? std::nullopt : std::optional(std::move(data));
}

}  // namespace qbdkr
