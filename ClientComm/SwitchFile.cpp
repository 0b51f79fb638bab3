#include "ClientComm/SwitchFile.h"

#include <algorithm>
#include <chrono>

#include "ClientComm/Text.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/Text.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

// Two writers at once could mix what they write.
constexpr std::chrono::seconds lockPatience(2);

std::string utf16WithMark(std::string_view text) {
  std::string bytes("\xFF\xFE", 2);
  for (const char16_t unit : utf16FromUTF8(text)) {
    bytes += static_cast<char>(unit & 0xFFU);
    bytes += static_cast<char>(unit >> 8U);
  }
  return bytes;
}

PropertyList valueFor(SwitchForm form, bool value) {
  if (form == SwitchForm::propertyList) return value;
  return value ? "1" : "0";
}

std::optional<std::string> contentsFor(SwitchForm form, const Dictionary& dictionary) {
  if (form == SwitchForm::propertyList) return xmlPropertyList(dictionary);
  const auto text = stringsFileText(dictionary);
  return text ? std::optional(utf16WithMark(*text)) : std::nullopt;
}

}  // namespace

std::optional<std::string> firstPropertyList(const std::string& bundlePath) {
  const std::string contents = appendPathComponent(bundlePath, "Contents");
  const auto names = contentsOfDirectory(contents).value_or(std::vector<std::string>());
  const auto first = std::ranges::find(names, "plist", pathExtension);
  if (first == names.end()) return std::nullopt;
  return appendPathComponent(contents, *first);
}

bool writeSwitch(const std::string& path, SwitchForm form, std::string_view key, bool value,
                 SwitchWrite when) {
  const auto lock = FileLock::acquire(path, lockPatience);
  auto dictionary = readDictionaryFile(path);
  if (!dictionary) return false;
  const PropertyList* before = dictionary->find(key);
  const bool unchanged = before != nullptr && boolValue(*before) == value;
  if (unchanged && when == SwitchWrite::whenChanged) return true;
  dictionary->set(key, valueFor(form, value));
  const auto contents = contentsFor(form, *dictionary);
  return contents && rewriteFile(path, *contents);
}

}  // namespace qbdkr
