#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Platform/Text/CoreFoundationTextMacOS.h"
#include "Platform/Text/NativeUnicode.h"
#include "Platform/Text/Text.h"
#include "macos/doubles/CFString.h"

namespace qbdkr {
namespace {

// Decomposes a text in one call of the system.
std::u16string decomposedAtOnce(std::u16string_view text) {
  const auto string = stringFromUnits(text);
  const CFRef<CFMutableStringRef> copy(
      CFStringCreateMutableCopy(kCFAllocatorDefault, 0, string.get()));
  CFStringNormalize(copy.get(), kCFStringNormalizationFormD);
  return unitsFromString(copy.get());
}

std::u16string repeated(std::u16string_view part, std::size_t times) {
  std::u16string text;
  for (std::size_t i = 0; i < times; ++i) text += part;
  return text;
}

TEST(NativeUnicodeMacOS, NoLongRunOfMarksReachesTheSystem) {
  static_cast<void>(doubles::takeLongestRun());
  for (const std::u16string_view marks : {u"\u0307\u0323", u"\U0001D165", u"\u0E31\u0344\u0307"}) {
    const auto text = u"a" + repeated(marks, 20'000);
    EXPECT_GE(canonicalDecomposition(text).size(), text.size());
    EXPECT_LE(doubles::takeLongestRun(), 32U);
  }
}

TEST(NativeUnicodeMacOS, ComparisonOfLongRunsOfMarksEnds) {
  const auto a = u"a" + repeated(u"\u0307\u0323", 100'000);
  const auto b = u"a" + repeated(u"\u0323\u0307", 100'000);
  EXPECT_EQ(compareText(a, b), 0);
  EXPECT_EQ(compareText(a, b + u"\u0323"), -1);
}

// The texts are long enough to be cut, at every place of the part.
TEST(NativeUnicodeMacOS, TextInPiecesDecomposesAsAWhole) {
  const std::u16string part = u"\u1E69\u0307\u0323\uAC01\U0001D15F\U0001D165a\u0F73\u00C5-" +
                              repeated(u"\u0308\u0316", 15) + u"\u212B";
  for (std::size_t shift = 0; shift < part.size(); ++shift) {
    const auto text = std::u16string(shift, u'x') + repeated(part, 40);
    EXPECT_EQ(canonicalDecomposition(text), decomposedAtOnce(text)) << shift;
  }
}

TEST(NativeUnicodeMacOS, HalvesOfPairsAreKept) {
  const auto halves = std::u16string(600, char16_t{0xD83D}) + std::u16string(600, char16_t{0xDE00});
  EXPECT_EQ(canonicalDecomposition(halves), halves);
  EXPECT_EQ(canonicalDecomposition(u""), u"");
}

TEST(NativeUnicodeMacOS, NoObjectIsLeft) {
  const auto text = repeated(u"\u00C5", 1000);
  static_cast<void>(canonicalDecomposition(text));  // the system keeps its sets
  const std::size_t before = doubles::liveObjects();
  static_cast<void>(canonicalDecomposition(text));
  static_cast<void>(lowercase("\u00C5"));
  EXPECT_EQ(doubles::liveObjects(), before);
}

}  // namespace
}  // namespace qbdkr
