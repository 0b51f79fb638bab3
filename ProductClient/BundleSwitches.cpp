#include "ProductClient/BundleSwitches.h"

#include <string>
#include <utility>
#include <vector>

#include <ClientComm/LogHandler.h>

#include "ClientComm/SwitchFile.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/PropertyListReader.h"

namespace qbdkr {
namespace {

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text.append(text.empty() ? "" : ", ").append(name);
  return '(' + text + ')';
}

// Tells whether a file has the tips switch: that file holds both switches.
bool carriesSwitches(const std::string& path) {
  if (pathExtension(path) != "strings") return false;
  const auto dictionary = readDictionaryFile(path);
  return dictionary && dictionary->find(tipsSwitch.key) != nullptr;
}

void save(const String& path, SwitchForm form, const BundleSwitch& which, bool value) {
  if (path) writeSwitch(*path, form, which.key, value, SwitchWrite::whenChanged);
}

}  // namespace

BundleSwitches::BundleSwitches(Bundle host) : host_(std::move(host)) {}

String BundleSwitches::stringsFile(Text bundlePath) const {
  const std::string path(bundlePath.value_or(""));
  const std::string resources = appendPathComponent(path, "Contents/Resources");
  const auto bundle = fileExists(resources) ? Bundle::withPath(path) : std::nullopt;
  const String localizations = bundle ? String(listed(bundle->localizations())) : std::nullopt;
  log(LogCategory::settings, "%@", {publicArgument(view(localizations))});
  const auto languages = host_.preferredLocalizations();
  if (!bundle || languages.empty()) return std::nullopt;
  const std::string folder = appendPathComponent(resources, languages.front() + ".lproj");
  if (!fileExists(folder)) return std::nullopt;
  for (const std::string& name : contentsOfDirectory(folder).value_or(std::vector<std::string>())) {
    std::string file = appendPathComponent(folder, name);
    if (carriesSwitches(file)) return file;
  }
  return appendPathComponent(folder, "InfoPlist.strings");
}

String BundleSwitches::propertyListFile(Text bundlePath) const {
  return bundlePath ? firstPropertyList(std::string(*bundlePath)) : std::nullopt;
}

void BundleSwitches::saveToPropertyList(const BundleSwitch& which, bool value) const {
  save(propertyListFile(host_.bundlePath()), SwitchForm::propertyList, which, value);
}

void BundleSwitches::saveToStringsFile(const BundleSwitch& which, bool value) const {
  save(stringsFile(host_.bundlePath()), SwitchForm::strings, which, value);
}

void BundleSwitches::set(const BundleSwitch& which, bool value) const {
  saveToPropertyList(which, value);
  saveToStringsFile(which, value);
}

void BundleSwitches::bringInLine(const BundleSwitch& which) const {
  const PropertyList* value = host_.objectForInfoDictionaryKey(which.key);
  saveToPropertyList(which, value == nullptr ? which.valueWhenMissing : boolValue(*value));
}

}  // namespace qbdkr
