// The two switches that reach the helper agent through the host's own bundle: whether tips are
// shown, and whether advertising is enabled.

#include <algorithm>
#include <string>

#include "ClientComm/InfoKeys.h"
#include "ClientComm/SwitchFile.h"
#include "Platform/Bundles/Bundle.h"
#include "Platform/Files/Files.h"
#include "Platform/Log/Log.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "ProductClient/QBHPHelperCommunicate.h"

namespace qbdkr {
namespace {

using infokey::enableAD;
using infokey::tipsEnable;

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text.append(text.empty() ? "" : ", ").append(name);
  return '(' + text + ')';
}

// Both switches live in the file that carries the tips switch.
bool carriesSwitches(const std::string& path) {
  if (pathExtension(path) != "strings") return false;
  const auto dictionary = readDictionaryFile(path);
  return dictionary && dictionary->find(tipsEnable) != nullptr;
}

void saveSwitch(const String& path, SwitchForm form, std::string_view key, bool value) {
  if (path) writeSwitch(*path, form, key, value, SwitchWrite::whenChanged);
}

// What the information dictionary says of a switch, localized texts first.
bool currentSwitch(std::string_view key, bool valueWhenMissing) {
  const PropertyList* value = Bundle::main().objectForInfoDictionaryKey(key);
  return value == nullptr ? valueWhenMissing : boolValue(*value);
}

}  // namespace

String QBHPHelperCommunicate::searchCurrentStringsFilePath(Text bundlePath) {
  const std::string path(bundlePath.value_or(""));
  const std::string resources = appendPathComponent(path, "Contents/Resources");
  const auto bundle = fileExists(resources) ? Bundle::withPath(path) : std::nullopt;
  const String localizations = bundle ? String(listed(bundle->localizations())) : std::nullopt;
  log("%@", {view(localizations)});
  // The language is the one that the process runs in, whatever bundle is searched.
  const auto languages = Bundle::main().preferredLocalizations();
  if (!bundle || languages.empty()) return std::nullopt;
  const std::string folder = appendPathComponent(resources, languages.front() + ".lproj");
  if (!fileExists(folder)) return std::nullopt;
  for (const std::string& name : contentsOfDirectory(folder).value_or(std::vector<std::string>())) {
    std::string file = appendPathComponent(folder, name);
    if (carriesSwitches(file)) return file;
  }
  return appendPathComponent(folder, "InfoPlist.strings");
}

String QBHPHelperCommunicate::searchPlistFilePath(Text bundlePath) {
  return bundlePath ? firstPropertyList(std::string(*bundlePath)) : std::nullopt;
}

void QBHPHelperCommunicate::saveEnableADToStringsFile(bool enable) {
  saveSwitch(searchCurrentStringsFilePath(Bundle::main().bundlePath()), SwitchForm::strings,
             enableAD, enable);
}

void QBHPHelperCommunicate::saveTipsEnableTostringsFile(bool enable) {
  saveSwitch(searchCurrentStringsFilePath(Bundle::main().bundlePath()), SwitchForm::strings,
             tipsEnable, enable);
}

void QBHPHelperCommunicate::saveEnableADToPlistFile(bool enable) {
  saveSwitch(searchPlistFilePath(Bundle::main().bundlePath()), SwitchForm::propertyList, enableAD,
             enable);
}

void QBHPHelperCommunicate::saveTipsEnableToPlistFile(bool enable) {
  saveSwitch(searchPlistFilePath(Bundle::main().bundlePath()), SwitchForm::propertyList, tipsEnable,
             enable);
}

void QBHPHelperCommunicate::saveEnableAD() {
  saveEnableADToPlistFile(currentSwitch(enableAD, false));
}

void QBHPHelperCommunicate::saveTipsEnable() {
  saveTipsEnableToPlistFile(currentSwitch(tipsEnable, true));
}

void QBHPHelperCommunicate::setEnableAD(bool enable) {
  saveEnableADToPlistFile(enable);
  saveEnableADToStringsFile(enable);
}

void QBHPHelperCommunicate::setTipsEnable(bool enable) {
  saveTipsEnableToPlistFile(enable);
  saveTipsEnableTostringsFile(enable);
}

}  // namespace qbdkr
