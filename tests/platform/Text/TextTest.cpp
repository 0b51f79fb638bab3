#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using namespace std::string_view_literals;

TEST(IsValidUTF8, AcceptsCharactersOfEveryLength) {
  EXPECT_TRUE(isValidUTF8(""));
  EXPECT_TRUE(isValidUTF8("plain"));
  EXPECT_TRUE(isValidUTF8("\0 zero"sv));
  EXPECT_TRUE(isValidUTF8("Gr\u00FC\u00DFe \u263A \U0001F600 \U0010FFFF"));
}

// Several bytes are checked at once.
TEST(IsValidUTF8, FindsABadByteAnywhere) {
  for (std::size_t size = 1; size <= 40; ++size) {
    for (std::size_t place = 0; place < size; ++place) {
      std::string text(size, 'a');
      EXPECT_TRUE(isValidUTF8(text));
      text[place] = '\x80';
      EXPECT_FALSE(isValidUTF8(text)) << place << " of " << size;
    }
  }
}

TEST(TextTest, PlainAsciiHasNeitherZerosNorHighBytesAtAnyPlace) {
  for (std::size_t size = 0; size < 40; ++size) {
    std::string text(size, 'a');
    EXPECT_TRUE(isPlainASCII(text));
    for (std::size_t place = 0; place < size; ++place) {
      for (const char byte : {'\x01', '\x7f', '\0', '\x80', '\xff'}) {
        text[place] = byte;
        EXPECT_EQ(isPlainASCII(text), byte == '\x01' || byte == '\x7f') << place << " of " << size;
      }
      text[place] = 'a';
    }
  }
}

TEST(IsValidUTF8, RefusesSurrogates) {
  EXPECT_FALSE(isValidUTF8("\xED\xA0\x80"));
  EXPECT_FALSE(isValidUTF8("\xED\xBF\xBF"));
  EXPECT_FALSE(isValidUTF8("\xED\xA0\xBD\xED\xB8\x80"));
}

TEST(IsValidUTF8, RefusesOverlongForms) {
  EXPECT_FALSE(isValidUTF8("\xC0\x80"));
  EXPECT_FALSE(isValidUTF8("\xC1\xBF"));
  EXPECT_FALSE(isValidUTF8("\xE0\x9F\xBF"));
  EXPECT_FALSE(isValidUTF8("\xF0\x8F\xBF\xBF"));
}

TEST(IsValidUTF8, RefusesWhatIsBeyondUnicode) {
  EXPECT_FALSE(isValidUTF8("\xF4\x90\x80\x80"));
  EXPECT_FALSE(isValidUTF8("\xF8\x88\x80\x80\x80"));
  EXPECT_FALSE(isValidUTF8("\xFF"));
}

TEST(IsValidUTF8, RefusesTruncatedAndStrayBytes) {
  EXPECT_FALSE(isValidUTF8("abc\xC3"));
  EXPECT_FALSE(isValidUTF8("\xE2\x98"));
  EXPECT_FALSE(isValidUTF8("\xF0\x9F\x98"));
  EXPECT_FALSE(isValidUTF8("\x80"));
  EXPECT_FALSE(isValidUTF8("\xC3("));
}

TEST(UTF16FromUTF8, MakesPairsOfCharactersBeyondTheFirstPlane) {
  EXPECT_EQ(utf16FromUTF8("a\u00FC\u263A\U0001F600"), u"a\u00FC\u263A\U0001F600");
  EXPECT_EQ(utf16FromUTF8("\U0001F600").size(), 2U);
  EXPECT_EQ(utf16FromUTF8("a\0b"sv), u"a\0b"sv);
}

TEST(UTF16FromUTF8, ReplacesEveryByteThatIsNotUTF8) {
  EXPECT_EQ(utf16FromUTF8("a\xFF"
                          "b"),
            u"a\uFFFDb");
  EXPECT_EQ(utf16FromUTF8("\xC3"), u"\uFFFD");
  EXPECT_EQ(utf16FromUTF8("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
}

TEST(UTF8FromUTF16, IsTheInverse) {
  const std::string text = "a\u00FC\u263A\uFFFF\U0001F600\U0010FFFF\x7F";
  EXPECT_EQ(utf8FromUTF16(utf16FromUTF8(text)), text);
  EXPECT_EQ(utf8FromUTF16(u""), "");
}

TEST(UTF8FromUTF16, ReplacesHalvesOfPairs) {
  const std::u16string high(1, char16_t{0xD83D});
  const std::u16string low(1, char16_t{0xDE00});
  EXPECT_EQ(utf8FromUTF16(high), "\uFFFD");
  EXPECT_EQ(utf8FromUTF16(low), "\uFFFD");
  EXPECT_EQ(utf8FromUTF16(low + high), "\uFFFD\uFFFD");
  EXPECT_EQ(utf8FromUTF16(high + u"a"), "\uFFFDa");
  EXPECT_EQ(utf8FromUTF16(high + high + low), "\uFFFD\U0001F600");
}

TEST(Escaped, HasNoCommandsForATerminal) {
  EXPECT_EQ(escaped("a \u00E4\u20AC\U0001F600\u00A0\u2026"),
            "a \u00E4\u20AC\U0001F600\u00A0\u2026");
  EXPECT_EQ(escaped("\x1b[2J\n\r\t\0\x7f"sv), R"(\x1b[2J\n\r\t\x00\x7f)");
  EXPECT_EQ(escaped("\xC2\x9B\u200F\u202E\u2066"), R"(\u009b\u200f\u202e\u2066)");
}

TEST(Escaped, IsUTF8) {
  EXPECT_EQ(escaped("\xFF|\xC3"), R"(\xff|\xc3)");
  EXPECT_EQ(escaped("\xE2\x82|\xF0\x9F"), R"(\xe2\x82|\xf0\x9f)");
  for (int byte = 0; byte < 256; ++byte) {
    EXPECT_TRUE(isValidUTF8(escaped(std::string(3, static_cast<char>(byte)))));
  }
}

TEST(Escaped, KeepsTheCharactersThatItIsGiven) {
  EXPECT_EQ(escaped("a\n\tb\r", "\n\t"), "a\n\tb\\r");
}

TEST(Escaped, IsCutAfterAWholeCharacter) {
  EXPECT_EQ(escaped("abc", {}, 3), "abc");
  EXPECT_EQ(escaped("abcd", {}, 3), "abc...");
  EXPECT_EQ(escaped("ab\u20ACd", {}, 3), "ab\u20AC...");
}

TEST(DecimalDigitValue, KnowsTheDigitsOfEveryScript) {
  for (const char16_t zero :
       {u'0', u'\u0660', u'\u06F0', u'\u07C0', u'\u0966', u'\u0E50', u'\u0F20', u'\u17E0',
        u'\u1810', u'\u1A80', u'\u1A90', u'\uA620', u'\uFF10'}) {
    for (int value = 0; value < 10; ++value) {
      EXPECT_EQ(decimalDigitValue(static_cast<char16_t>(zero + value)), value);
    }
    EXPECT_EQ(decimalDigitValue(static_cast<char16_t>(zero - 1)), std::nullopt);
    EXPECT_EQ(decimalDigitValue(static_cast<char16_t>(zero + 10)), std::nullopt);
  }
}

TEST(DecimalDigitValue, IsAbsentForNumbersThatAreNoDecimalDigits) {
  EXPECT_EQ(decimalDigitValue(u'\u00B2'), std::nullopt);  // superscript two
  EXPECT_EQ(decimalDigitValue(u'\u00BD'), std::nullopt);  // one half
  EXPECT_EQ(decimalDigitValue(u'\u2167'), std::nullopt);  // Roman eight
  EXPECT_EQ(decimalDigitValue(u'\u4E00'), std::nullopt);  // the ideograph for one
  EXPECT_EQ(decimalDigitValue(u'\u19DA'), std::nullopt);  // a second one of New Tai Lue
}

TEST(DecimalDigitValue, IsAbsentForEverythingElse) {
  EXPECT_EQ(decimalDigitValue(u'a'), std::nullopt);
  EXPECT_EQ(decimalDigitValue(u'\0'), std::nullopt);
  for (const int half : {0xD800, 0xD835, 0xDBFF, 0xDC00, 0xDFCE, 0xDFFF, 0xFFFF}) {
    EXPECT_EQ(decimalDigitValue(static_cast<char16_t>(half)), std::nullopt);
  }
}

TEST(CompareText, OrdersByCharacter) {
  EXPECT_EQ(compareText(u"", u""), 0);
  EXPECT_EQ(compareText(u"a", u"a"), 0);
  EXPECT_EQ(compareText(u"a", u"b"), -1);
  EXPECT_EQ(compareText(u"b", u"a"), 1);
  EXPECT_EQ(compareText(u"a", u"ab"), -1);
  EXPECT_EQ(compareText(u"", u"a"), -1);
}

TEST(CompareText, IsCaseSensitive) {
  EXPECT_EQ(compareText(u"A", u"a"), -1);
  EXPECT_EQ(compareText(u"Z", u"a"), -1);
}

TEST(CompareText, TakesCanonicallyEquivalentTextsForEqual) {
  EXPECT_EQ(compareText(u"\u00FC", u"u\u0308"), 0);
  EXPECT_EQ(compareText(u"\u212B", u"\u00C5"), 0);              // Angstrom sign
  EXPECT_EQ(compareText(u"\uAC01", u"\u1100\u1161\u11A8"), 0);  // Hangul
  EXPECT_EQ(compareText(u"a\u0323\u0307", u"a\u0307\u0323"), 0);
  EXPECT_EQ(compareText(u"\u1E69", u"s\u0307\u0323"), 0);
}

TEST(CompareText, KeepsWhatIsOnlyCompatible) {
  EXPECT_NE(compareText(u"\uFB01", u"fi"), 0);
  EXPECT_NE(compareText(u"\uFF21", u"A"), 0);
  // Marks of the same class keep their order.
  EXPECT_NE(compareText(u"a\u0307\u0308", u"a\u0308\u0307"), 0);
}

TEST(CompareText, OrdersCharactersBeyondTheFirstPlaneLast) {
  EXPECT_EQ(compareText(u"\uFFFD", u"\U0001F600"), -1);
  EXPECT_EQ(compareText(u"\U0001F600", u"\uE000"), 1);
}

TEST(CompareText, TellsHalvesOfPairsApart) {
  const std::u16string high(1, char16_t{0xD83D});
  const std::u16string other(1, char16_t{0xD83E});
  EXPECT_EQ(compareText(high, high), 0);
  EXPECT_EQ(compareText(high, other), -1);
  EXPECT_NE(compareText(high, u"\uFFFD"), 0);
}

TEST(CompareText, TakesALongRunOfMarksInItsStride) {
  std::u16string a = u"a";
  std::u16string b = u"a";
  for (int i = 0; i < 200'000; ++i) {
    a += i % 2 == 0 ? u'\u0307' : u'\u0323';
    b += i % 2 == 0 ? u'\u0323' : u'\u0307';
  }
  EXPECT_EQ(compareText(a, b), 0);
}

TEST(Lowercase, MapsLettersOfEveryScript) {
  EXPECT_EQ(lowercase("HELLO World 123"), "hello world 123");
  EXPECT_EQ(lowercase("@AMZ[`amz{"), "@amz[`amz{");
  EXPECT_EQ(lowercase("\u00C4\u0416\u03A9\U00010400"), "\u00E4\u0436\u03C9\U00010428");
  EXPECT_EQ(lowercase("\u00DF\u263A"), "\u00DF\u263A");
  EXPECT_EQ(lowercase(""), "");
}

TEST(Lowercase, KeepsBytesThatAreNotUTF8) {
  EXPECT_EQ(lowercase("A\xFF"
                      "B\xC3"),
            "a\xFF"
            "b\xC3");
}

}  // namespace
}  // namespace qbdkr
