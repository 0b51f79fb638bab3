#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Text/NativeUnicode.h"

namespace qbdkr {

namespace {

CFRef<CFMutableStringRef> mutableCopy(const CFRef<CFStringRef>& string) {
  if (!string) return {};
  return CFRef<CFMutableStringRef>(CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string.get()));
}

}  // namespace

bool isDecimalDigit(char16_t unit) {
  return CFCharacterSetIsCharacterMember(CFCharacterSetGetPredefined(kCFCharacterSetDecimalDigit),
                                         unit) != 0;
}

std::u16string canonicalDecomposition(std::u16string_view text) {
  const auto string = mutableCopy(stringFromUnits(text));
  if (!string) return std::u16string(text);
  CFStringNormalize(string.get(), kCFStringNormalizationFormD);
  return unitsFromString(string.get());
}

// Takes no locale: only the rules common to every language apply.
std::string lowercaseOfValid(std::string_view utf8) {
  const auto string = mutableCopy(stringFromText(utf8));
  if (!string) return std::string(utf8);
  CFStringLowercase(string.get(), nullptr);
  return textFromString(string.get());
}

}  // namespace qbdkr
