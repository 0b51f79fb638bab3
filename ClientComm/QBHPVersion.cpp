#include <algorithm>
#include <cstddef>

#include <ClientComm/Exceptions.h>
#include <ClientComm/QBHPVersion.h>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

int order(std::int64_t a, std::int64_t b) { return a < b ? -1 : (a > b ? 1 : 0); }

int rank(CharacterType type) {
  switch (type) {
    case CharacterType::other:
      return 0;
    case CharacterType::dot:
      return 1;
    case CharacterType::digit:
      break;
  }
  return 2;
}

int compareComponents(const std::u16string& a, const std::u16string& b) {
  const CharacterType typeOfA = typeOfCharacter(a);
  const CharacterType typeOfB = typeOfCharacter(b);
  if (typeOfA != typeOfB) return order(rank(typeOfA), rank(typeOfB));
  switch (typeOfA) {
    case CharacterType::other:
      return compareText(a, b);
    case CharacterType::digit:
      return order(intValue(utf8FromUTF16(a)), intValue(utf8FromUTF16(b)));
    case CharacterType::dot:
      break;
  }
  return 0;
}

}  // namespace

CharacterType typeOfCharacter(std::u16string_view string) {
  if (string.empty()) throw RangeException("an empty string has no first character");
  if (string == u".") return CharacterType::dot;
  return decimalDigitValue(string.front()) ? CharacterType::digit : CharacterType::other;
}

std::vector<std::u16string> splitVersionString(Text version) {
  const std::u16string units = utf16FromUTF8(version.value_or(""));
  std::vector<std::u16string> components;
  auto previous = CharacterType::dot;  // the first character begins a component
  for (const char16_t unit : units) {
    const CharacterType type = typeOfCharacter({&unit, 1});
    if (type != previous || previous == CharacterType::dot) components.emplace_back();
    components.back() += unit;
    previous = type;
  }
  return components;
}

int compareVersion(Text version, Text toVersion) {
  const auto a = splitVersionString(version);
  const auto b = splitVersionString(toVersion);
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (const int result = compareComponents(a[i], b[i]); result != 0) return result;
  }
  if (a.size() == b.size()) return 0;
  const bool firstIsShorter = a.size() < b.size();
  const auto& next = firstIsShorter ? b[common] : a[common];
  const bool preRelease = typeOfCharacter(next) == CharacterType::other;
  return firstIsShorter == preRelease ? 1 : -1;
}

}  // namespace qbdkr
