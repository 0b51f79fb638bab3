#include "Platform/Bundle.h"

#include <utility>

#include "Platform/BundleState.h"

namespace qbdkr {

const std::string& Bundle::bundlePath() const { return state_->path; }

const PropertyList* Bundle::objectForInfoDictionaryKey(std::string_view key) const {
  return state_->info.find(key);
}

std::optional<std::string> Bundle::infoString(std::string_view key) const {
  const PropertyList* value = objectForInfoDictionaryKey(key);
  if (value == nullptr || value->string() == nullptr) return std::nullopt;
  return *value->string();
}

PropertyList::Dictionary localizedInfo(PropertyList::Dictionary info,
                                       const PropertyList::Dictionary& texts) {
  if (texts.empty()) return info;
  std::vector<PropertyList::Dictionary::Entry> entries(info.begin(), info.end());
  entries.insert(entries.end(), texts.begin(), texts.end());
  return PropertyList::Dictionary::fromEntries(std::move(entries));
}

}  // namespace qbdkr
