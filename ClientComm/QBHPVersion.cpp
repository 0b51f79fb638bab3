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
  const std::u16string_view text = units;
  std::vector<std::u16string> components;
  components.reserve(8);               // as many as nearly all versions have
  auto previous = CharacterType::dot;  // the first character begins a component
  std::size_t begin = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const CharacterType type = typeOfCharacter(text.substr(i, 1));
    if (i > begin && (type != previous || previous == CharacterType::dot)) {
      components.emplace_back(text.substr(begin, i - begin));
      begin = i;
    }
    previous = type;
  }
  if (begin < text.size()) components.emplace_back(text.substr(begin));
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
