#include <cstddef>

#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Text/NativeUnicode.h"
#include "Platform/Text/UTF16.h"

namespace qbdkr {

namespace {

CFRef<CFMutableStringRef> mutableCopy(const CFRef<CFStringRef>& string) {
  if (!string) return {};
  return CFRef<CFMutableStringRef>(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string.get()));
}

bool isMark(char32_t character) {
  return CFCharacterSetIsLongCharacterMember(CFCharacterSetGetPredefined(kCFCharacterSetNonBase),
                                             character) != 0;
}

// The system takes quadratic time for a run of marks, and perhaps for a long text.
constexpr std::size_t longestRun = 32;  // every language has fewer marks on one letter
constexpr std::size_t usualPiece = 256;

// Takes a piece off the front of a text that is not empty. It ends before a character that is no
// mark, where the decompositions of the pieces are that of the whole, or after a run that is too
// long, whose marks are then ordered in parts.
std::u16string_view takePiece(std::u16string_view& text) {
  std::u16string_view rest = text;
  for (std::size_t marks = 0; !rest.empty() && marks < longestRun;) {
    std::u16string_view next = rest;
    marks = isMark(takeCharacter(next)) ? marks + 1 : 0;
    if (marks == 0 && text.size() - rest.size() >= usualPiece) break;
    rest = next;
  }
  const std::u16string_view piece = text.substr(0, text.size() - rest.size());
  text = rest;
  return piece;
}

std::u16string decompositionOfPiece(std::u16string_view text) {
  const auto string = mutableCopy(stringFromUnits(text));
  if (!string) return std::u16string(text);
  CFStringNormalize(string.get(), kCFStringNormalizationFormD);
  return unitsFromString(string.get());
}

}  // namespace

bool isDecimalDigit(char16_t unit) {
  return CFCharacterSetIsCharacterMember(CFCharacterSetGetPredefined(kCFCharacterSetDecimalDigit),
                                         unit) != 0;
}

std::u16string canonicalDecomposition(std::u16string_view text) {
  std::u16string decomposed;
  decomposed.reserve(text.size());
  while (!text.empty()) decomposed += decompositionOfPiece(takePiece(text));
  return decomposed;
}

// Takes no locale: only the rules common to every language apply.
std::string lowercaseOfValid(std::string_view utf8) {
  const auto string = mutableCopy(stringFromText(utf8));
  if (!string) return std::string(utf8);
  CFStringLowercase(string.get(), nullptr);
  return textFromString(string.get());
}

}  // namespace qbdkr
