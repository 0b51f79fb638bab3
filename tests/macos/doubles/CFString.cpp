#include "macos/doubles/CFString.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "Platform/Text/Text.h"
#include "Platform/Text/UTF16.h"

using namespace qbdkr;
using namespace doubles;

namespace {

std::size_t longestRun = 0;

bool isMark(char32_t character) {
  const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(character));
  return category == UTF8PROC_CATEGORY_MN || category == UTF8PROC_CATEGORY_MC ||
         category == UTF8PROC_CATEGORY_ME;
}

void measureRuns(std::u16string_view text) {
  std::size_t run = 0;
  while (!text.empty()) {
    run = isMark(takeCharacter(text)) ? run + 1 : 0;
    longestRun = std::max(longestRun, run);
  }
}

struct CharacterSet final : CFObject {
  explicit CharacterSet(CFCharacterSetPredefinedSet what)
      : CFObject(CFKind::characterSet), which(what) {}
  const CFCharacterSetPredefinedSet which;
};

}  // namespace

std::size_t doubles::takeLongestRun() { return std::exchange(longestRun, 0); }

CFTypeID CFStringGetTypeID() { return static_cast<CFTypeID>(CFKind::string); }

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars) {
  return refTo<CFStringRef>(new CFString(std::u16string(chars, chars + numChars)));
}

CFIndex CFStringGetLength(CFStringRef theString) {
  return static_cast<CFIndex>(objectOf<CFString>(theString).units.size());
}

void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer) {
  const std::u16string& units = objectOf<CFString>(theString).units;
  std::copy_n(units.begin() + range.location, range.length, buffer);
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef theString) {
  return refTo<CFMutableStringRef>(new CFString(objectOf<CFString>(theString).units));
}

void CFStringLowercase(CFMutableStringRef theString, CFLocaleRef) {
  std::u16string& units = objectOf<CFString>(theString).units;
  std::u16string lowered;
  for (std::u16string_view rest = units; !rest.empty();) {
    const auto character = static_cast<utf8proc_int32_t>(takeCharacter(rest));
    appendUTF16(lowered, static_cast<char32_t>(utf8proc_tolower(character)));
  }
  units = lowered;
}

// Leaves a text with half a surrogate pair as it is.
void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm) {
  std::u16string& units = objectOf<CFString>(theString).units;
  measureRuns(units);
  const std::string text = utf8FromUTF16(units);
  if (utf16FromUTF8(text) != units) return;
  utf8proc_uint8_t* decomposed = nullptr;
  const auto length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &decomposed,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE));
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(decomposed, std::free);
  if (length < 0) return;
  units =
      utf16FromUTF8({reinterpret_cast<const char*>(decomposed), static_cast<std::size_t>(length)});
}

CFCharacterSetRef CFCharacterSetGetPredefined(CFCharacterSetPredefinedSet theSetIdentifier) {
  static CharacterSet digits(kCFCharacterSetDecimalDigit);
  static CharacterSet marks(kCFCharacterSetNonBase);
  return refTo<CFCharacterSetRef>(theSetIdentifier == kCFCharacterSetNonBase ? &marks : &digits);
}

Boolean CFCharacterSetIsCharacterMember(CFCharacterSetRef theSet, UniChar theChar) {
  return CFCharacterSetIsLongCharacterMember(theSet, theChar);
}

Boolean CFCharacterSetIsLongCharacterMember(CFCharacterSetRef theSet, UTF32Char theChar) {
  if (objectOf<CharacterSet>(theSet).which == kCFCharacterSetNonBase) return isMark(theChar);
  return utf8proc_category(static_cast<utf8proc_int32_t>(theChar)) == UTF8PROC_CATEGORY_ND;
}
