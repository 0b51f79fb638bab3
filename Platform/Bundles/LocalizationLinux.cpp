#include "Platform/Bundles/LocalizationLinux.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "Platform/Files/Files.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

// "pt_BR.UTF-8@euro" and "pt-BR" name the same language: "pt-br".
std::string canonicalName(std::string_view locale) {
  std::string name = lowercase(locale.substr(0, locale.find_first_of(".@")));
  std::ranges::replace(name, '_', '-');
  return name;
}

// Returns the script of a regional Chinese locale, after which folders are named; "" for others.
std::string_view scriptName(std::string_view language) {
  if (language == "zh-cn" || language == "zh-sg" || language == "zh") return "zh-hans";
  if (language == "zh-tw" || language == "zh-hk" || language == "zh-mo") return "zh-hant";
  return {};
}

std::string_view baseLanguage(std::string_view language) {
  return language.substr(0, language.find('-'));
}

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : value;
}

// Returns the locale of messages, as setlocale(3) finds it: an empty variable counts as not set.
std::string_view localeOfMessages() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const auto value = variable(name); !value.empty()) return value;
  }
  return "C";
}

bool isUntranslated(std::string_view locale) { return locale == "C" || locale == "POSIX"; }

// Returns the user's languages, best first, as gettext(3) does: LANGUAGE goes before the locale,
// unless the locale means no translation; a "C" in the list ends it.
std::vector<std::string> languagesOfUser() {
  const std::string_view locale = localeOfMessages();
  if (isUntranslated(locale)) return {};
  const std::string list = std::string(variable("LANGUAGE")).append(":").append(locale);
  std::vector<std::string> languages;
  for (std::string_view rest = list; !rest.empty();) {
    const auto colon = rest.find(':');
    const std::string_view name = rest.substr(0, colon);
    if (isUntranslated(name)) break;
    // "C.UTF-8" is an encoding without a language.
    const std::string language = canonicalName(name);
    if (!language.empty() && language != "c" && language != "posix") languages.push_back(language);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
  }
  return languages;
}

// Returns the folder for a language: its own, then its script's, then its base language's, then any
// variant of the base language.
std::optional<std::string> folderFor(std::string_view language,
                                     const std::vector<std::string>& folders) {
  const auto named = [&](std::string_view name) -> std::optional<std::string> {
    const auto found =
        std::ranges::find(folders, name, [](const auto& folder) { return canonicalName(folder); });
    return found == folders.end() ? std::nullopt : std::optional(*found);
  };
  if (auto folder = named(language)) return folder;
  const std::string_view script = scriptName(language);
  if (!script.empty()) {
    if (auto folder = named(script)) return folder;
  }
  if (auto folder = named(baseLanguage(language))) return folder;
  if (!script.empty()) return std::nullopt;  // the other script is no substitute
  const auto sameBase = std::ranges::find_if(folders, [&](const auto& folder) {
    return baseLanguage(canonicalName(folder)) == baseLanguage(language);
  });
  return sameBase == folders.end() ? std::nullopt : std::optional(*sameBase);
}

}  // namespace

std::vector<std::string> localizationsIn(const std::string& resources) {
  std::vector<std::string> languages;
  for (const std::string& name :
       contentsOfDirectory(resources).value_or(std::vector<std::string>())) {
    if (pathExtension(name) != "lproj" || name == "Base.lproj") continue;
    languages.push_back(name.substr(0, name.size() - std::string_view(".lproj").size()));
  }
  return languages;
}

std::vector<std::string> preferredLanguages(const std::vector<std::string>& folders,
                                            const PropertyList::Dictionary& info) {
  std::vector<std::string> preferred;
  const auto add = [&](std::string_view language) {
    const auto folder = folderFor(language, folders);
    if (folder && std::ranges::find(preferred, *folder) == preferred.end()) {
      preferred.push_back(*folder);
    }
  };
  for (const std::string& language : languagesOfUser()) add(language);
  if (!preferred.empty()) return preferred;
  if (const auto region = info.text("CFBundleDevelopmentRegion")) add(canonicalName(*region));
  return preferred;
}

}  // namespace qbdkr
