#include "ClientComm/SwitchFile.h"

#include <chrono>
#include <optional>
#include <utility>

#include <ClientComm/TextValue.h>

#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/PropertyLists/FileRewrite.h"
#include "Platform/PropertyLists/FlagEdit.h"
#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListReader.h"
#include "Platform/PropertyLists/PropertyListWriter.h"
#include "Platform/PropertyLists/TextPropertyList.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Concurrent writers could mix their contents. A setter writes two files, and a user interface that
// calls it must not wait longer than 0.2 s for others.
constexpr std::chrono::milliseconds lockPatience(100);

PropertyList valueFor(SwitchForm form, bool value) {
  if (form == SwitchForm::propertyList) return value;
  return value ? "1" : "0";
}

std::optional<std::string> contentsFor(SwitchForm form, const Dictionary& dictionary) {
  if (form == SwitchForm::propertyList) return xmlPropertyList(dictionary);
  const auto text = stringsFileText(dictionary);
  return text ? std::optional(utf16WithMark(*text)) : std::nullopt;
}

std::string_view blankOf(SwitchForm form) {
  return form == SwitchForm::propertyList ? std::string_view("\n") : std::string_view("\n\0", 2);
}

std::optional<bool> flagOf(const PropertyList* value) {
  return value == nullptr ? std::nullopt : std::optional(boolValue(*value));
}

bool isKept(std::optional<bool> before, bool value, SwitchWrite when) {
  return before == value && when == SwitchWrite::whenChanged;
}

bool rewrite(const std::string& path, SwitchForm form, std::optional<std::string> contents) {
  return contents && rewriteFile(path, std::move(*contents), blankOf(form));
}

}  // namespace

std::optional<std::string> firstPropertyList(const std::string& bundlePath) {
  return firstEntryWithExtension(appendPathComponent(bundlePath, "Contents"), "plist");
}

bool writeSwitch(const std::string& path, SwitchForm form, std::string_view key, bool value,
                 SwitchWrite when) {
  const auto lock = FileLock::acquire(path, lockPatience);
  if (lock.isTaken()) return false;
  recoverLockedFile(path);
  const auto bytes = propertylist::contentsOfFile(path, propertylist::maximumBytes).bytes;
  if (!bytes) return false;
  const auto edit = form == SwitchForm::propertyList ? FlagEdit::find(*bytes, key) : std::nullopt;
  if (edit) return isKept(edit->flag(), value, when) || rewrite(path, form, edit->with(value));
  auto dictionary = propertylist::parseDictionary(*bytes, propertylist::Bounds());
  if (!dictionary) return false;
  if (isKept(flagOf(dictionary->find(key)), value, when)) return true;
  dictionary->set(key, valueFor(form, value));
  return rewrite(path, form, contentsFor(form, *dictionary));
}

}  // namespace qbdkr
