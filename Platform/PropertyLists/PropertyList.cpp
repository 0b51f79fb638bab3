#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListScalars.h"

namespace qbdkr {

namespace {

using Entry = PropertyList::Dictionary::Entry;

template <class Entries>
auto entryWithKey(Entries& entries, std::string_view key) {
  return std::ranges::find(entries, key, &Entry::first);
}

// Returns the places of the entries in the order of their keys; equal keys keep their order. Sorts
// rather than hashes: no choice of keys makes sorting slow.
std::vector<std::size_t> placesByKey(const std::vector<Entry>& entries) {
  std::vector<std::size_t> places(entries.size());
  std::iota(places.begin(), places.end(), std::size_t{0});
  std::ranges::stable_sort(
      places,
      std::less<>(), [&](std::size_t place) -> const auto& { return entries[place].first; });
  return places;
}

// A repeated key keeps its first place and gets its last value.
void mergeRepeatedKeys(std::vector<Entry>& entries) {
  const std::vector<std::size_t> places = placesByKey(entries);
  std::vector<bool> repeated(entries.size());
  bool any = false;
  for (std::size_t i = 1, first = 0; i < places.size(); ++i) {
    if (entries[places[i]].first != entries[places[first]].first) {
      first = i;
      continue;
    }
    entries[places[first]].second = std::move(entries[places[i]].second);
    repeated[places[i]] = true;
    any = true;
  }
  if (!any) return;

  std::size_t kept = 0;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (repeated[i]) continue;
    if (kept != i) entries[kept] = std::move(entries[i]);
    ++kept;
  }
  entries.resize(kept);
}

}  // namespace

PropertyList::Dictionary::Dictionary() = default;
PropertyList::Dictionary::Dictionary(std::initializer_list<Entry> entries) : entries_(entries) {
  mergeRepeatedKeys(entries_);
}
PropertyList::Dictionary::Dictionary(const Dictionary&) = default;
PropertyList::Dictionary::Dictionary(Dictionary&&) noexcept = default;
PropertyList::Dictionary& PropertyList::Dictionary::operator=(const Dictionary&) = default;
PropertyList::Dictionary& PropertyList::Dictionary::operator=(Dictionary&&) noexcept = default;
PropertyList::Dictionary::~Dictionary() = default;

PropertyList::Dictionary PropertyList::Dictionary::fromEntries(std::vector<Entry> entries) {
  Dictionary dictionary;
  dictionary.entries_ = std::move(entries);
  mergeRepeatedKeys(dictionary.entries_);
  return dictionary;
}

const PropertyList* PropertyList::Dictionary::find(std::string_view key) const {
  const auto found = entryWithKey(entries_, key);
  return found == entries_.end() ? nullptr : &found->second;
}

std::optional<std::string> PropertyList::Dictionary::text(std::string_view key) const {
  const PropertyList* value = find(key);
  return value == nullptr ? std::nullopt : value->text();
}

void PropertyList::Dictionary::set(std::string_view key, PropertyList value) {
  const auto found = entryWithKey(entries_, key);
  if (found != entries_.end()) {
    found->second = std::move(value);
    return;
  }
  entries_.emplace_back(std::string(key), std::move(value));
}

bool PropertyList::Dictionary::erase(std::string_view key) {
  const auto found = entryWithKey(entries_, key);
  if (found == entries_.end()) return false;
  entries_.erase(found);
  return true;
}

std::size_t PropertyList::Dictionary::size() const { return entries_.size(); }

const PropertyList::Dictionary::Entry* PropertyList::Dictionary::begin() const {
  return entries_.data();
}

const PropertyList::Dictionary::Entry* PropertyList::Dictionary::end() const {
  return entries_.data() + entries_.size();
}

// Ignores the order of the keys: it is not a part of the value.
bool PropertyList::Dictionary::operator==(const Dictionary& other) const {
  if (entries_.size() != other.entries_.size()) return false;
  if (std::ranges::equal(entries_, other.entries_, {}, &Entry::first, &Entry::first)) {
    return std::ranges::equal(entries_, other.entries_, {}, &Entry::second, &Entry::second);
  }
  return std::ranges::equal(
      placesByKey(entries_), placesByKey(other.entries_),
      [&](std::size_t a, std::size_t b) { return entries_[a] == other.entries_[b]; });
}

namespace {

struct TextOf {
  std::optional<std::string> operator()(const std::string& text) const { return text; }
  std::optional<std::string> operator()(bool flag) const { return flag ? "1" : "0"; }
  std::optional<std::string> operator()(PropertyList::Integer integer) const {
    return propertylist::textFromInteger(integer);
  }
  std::optional<std::string> operator()(double real) const {
    return propertylist::textFromReal(real);
  }
  template <class Other>
  std::optional<std::string> operator()(const Other&) const {
    return std::nullopt;
  }
};

}  // namespace

std::optional<std::string> PropertyList::text() const { return std::visit(TextOf(), value_); }

}  // namespace qbdkr
