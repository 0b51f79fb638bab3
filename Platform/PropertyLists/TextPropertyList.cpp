#include "Platform/PropertyLists/TextPropertyList.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/PropertyList.h>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListScalars.h"
#include "Platform/Text/Text.h"

namespace qbdkr {

namespace propertylist {

namespace {

// The upper half of the NextStep encoding, which octal escapes above 0177 use.
constexpr std::array<char16_t, 128> nextStepCharacters = {
    0x00A0, 0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C7,  // 80
    0x00C8, 0x00C9, 0x00CA, 0x00CB, 0x00CC, 0x00CD, 0x00CE, 0x00CF,  // 88
    0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D9,  // 90
    0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00B5, 0x00D7, 0x00F7,  // 98
    0x00A9, 0x00A1, 0x00A2, 0x00A3, 0x2044, 0x00A5, 0x0192, 0x00A7,  // A0
    0x00A4, 0x2019, 0x201C, 0x00AB, 0x2039, 0x203A, 0xFB01, 0xFB02,  // A8
    0x00AE, 0x2013, 0x2020, 0x2021, 0x00B7, 0x00A6, 0x00B6, 0x2022,  // B0
    0x201A, 0x201E, 0x201D, 0x00BB, 0x2026, 0x2030, 0x00AC, 0x00BF,  // B8
    0x00B9, 0x02CB, 0x00B4, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9,  // C0
    0x00A8, 0x00B2, 0x02DA, 0x00B8, 0x00B3, 0x02DD, 0x02DB, 0x02C7,  // C8
    0x2014, 0x00B1, 0x00BC, 0x00BD, 0x00BE, 0x00E0, 0x00E1, 0x00E2,  // D0
    0x00E3, 0x00E4, 0x00E5, 0x00E7, 0x00E8, 0x00E9, 0x00EA, 0x00EB,  // D8
    0x00EC, 0x00C6, 0x00ED, 0x00AA, 0x00EE, 0x00EF, 0x00F0, 0x00F1,  // E0
    0x0141, 0x00D8, 0x0152, 0x00BA, 0x00F2, 0x00F3, 0x00F4, 0x00F5,  // E8
    0x00F6, 0x00E6, 0x00F9, 0x00FA, 0x00FB, 0x0131, 0x00FC, 0x00FD,  // F0
    0x0142, 0x00F8, 0x0153, 0x00DF, 0x00FE, 0x00FF, 0xFFFD, 0xFFFD,  // F8
};

// The line and paragraph separators count as space between tokens, like the end of a line.
constexpr std::string_view lineSeparator = "\xE2\x80\xA8";
constexpr std::string_view paragraphSeparator = "\xE2\x80\xA9";

bool isLetterOrDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isBare(char c) {
  return isLetterOrDigit(c) || std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

bool isOctalDigit(char c) { return c >= '0' && c <= '7'; }

class TextReader {
 public:
  TextReader(std::string_view text, const Bounds& bounds)
      : rest_(text), maximumLevels_(bounds.levels), values_(bounds.values) {}

  std::optional<PropertyList> read() {
    if (!skipSpace()) return std::nullopt;
    // An empty text is a strings file without pairs.
    if (rest_.empty()) return PropertyList(PropertyList::Dictionary());
    const char first = rest_.front();
    if (first == '{' || first == '(' || first == '<') return soleValue();
    return textOrPairs();
  }

 private:
  enum class Closing { brace, endOfText };

  std::optional<PropertyList> soleValue() {
    std::optional<PropertyList> list = value(0);
    if (!list || !skipSpace() || !rest_.empty()) return std::nullopt;
    return list;
  }

  // Reads a text alone as a list of its own; a text that anything follows is the first key.
  std::optional<PropertyList> textOrPairs() {
    const std::string_view beginning = rest_;
    std::optional<std::string> first = text();
    if (!first || !skipSpace()) return std::nullopt;
    if (rest_.empty()) return PropertyList(std::move(*first));
    rest_ = beginning;
    if (!values_.take()) return std::nullopt;
    return pairs(0, Closing::endOfText);
  }

  // The level is the number of containers around the value.
  std::optional<PropertyList> value(std::size_t level) {
    if (rest_.empty() || !values_.take()) return std::nullopt;
    switch (rest_.front()) {
      case '{':
        return braced(level);
      case '(':
        return array(level);
      case '<':
        return data();
      default:
        break;
    }
    std::optional<std::string> string = text();
    if (!string) return std::nullopt;
    return PropertyList(std::move(*string));
  }

  std::optional<PropertyList> braced(std::size_t level) {
    if (level == maximumLevels_) return std::nullopt;
    rest_.remove_prefix(1);
    std::optional<PropertyList> dictionary = pairs(level, Closing::brace);
    if (!dictionary || !take('}')) return std::nullopt;
    return dictionary;
  }

  // Reads pairs up to their closing token, which the caller takes.
  std::optional<PropertyList> pairs(std::size_t level, Closing closing) {
    std::vector<PropertyList::Dictionary::Entry> entries;
    while (true) {
      if (!skipSpace()) return std::nullopt;
      if (isEndOfPairs(closing)) break;
      if (!readPair(entries, level) || !skipSpace()) return std::nullopt;
      // Only the last pair may lack its semicolon.
      if (!take(';') && !isEndOfPairs(closing)) return std::nullopt;
    }
    return PropertyList(PropertyList::Dictionary::fromEntries(std::move(entries)));
  }

  [[nodiscard]] bool isEndOfPairs(Closing closing) const {
    return closing == Closing::brace ? rest_.starts_with('}') : rest_.empty();
  }

  bool readPair(std::vector<PropertyList::Dictionary::Entry>& entries, std::size_t level) {
    std::optional<std::string> key = text();
    if (!key || !skipSpace()) return false;
    if (!take('=')) {
      // A key without a value stands for itself.
      if (!values_.take()) return false;
      PropertyList itself(*key);
      entries.emplace_back(std::move(*key), std::move(itself));
      return true;
    }
    if (!skipSpace()) return false;
    std::optional<PropertyList> paired = value(level + 1);
    if (!paired) return false;
    entries.emplace_back(std::move(*key), std::move(*paired));
    return true;
  }

  std::optional<PropertyList> array(std::size_t level) {
    if (level == maximumLevels_) return std::nullopt;
    rest_.remove_prefix(1);
    PropertyList::Array values;
    while (true) {
      if (!skipSpace()) return std::nullopt;
      if (take(')')) return PropertyList(std::move(values));
      std::optional<PropertyList> element = value(level + 1);
      if (!element || !skipSpace()) return std::nullopt;
      values.push_back(std::move(*element));
      if (!take(',') && !rest_.starts_with(')')) return std::nullopt;
    }
  }

  std::optional<PropertyList> data() {
    rest_.remove_prefix(1);
    std::string bytes;
    int high = -1;
    while (!rest_.empty()) {
      const char c = rest_.front();
      if (const std::size_t space = spaceAtFront()) {
        rest_.remove_prefix(space);
        continue;
      }
      rest_.remove_prefix(1);
      if (c == '>') {
        if (high >= 0) return std::nullopt;
        return PropertyList(PropertyList::Data{std::move(bytes)});
      }
      const int digit = hexDigitValue(c);
      if (digit < 0) return std::nullopt;
      if (high >= 0) bytes += static_cast<char>(high * 16 + digit);
      high = high >= 0 ? -1 : digit;
    }
    return std::nullopt;
  }

  std::optional<std::string> text() {
    if (rest_.empty()) return std::nullopt;
    if (rest_.front() == '"' || rest_.front() == '\'') return quotedText();
    return bareText();
  }

  std::optional<std::string> bareText() {
    std::size_t length = 0;
    while (length < rest_.size() && isBare(rest_[length])) ++length;
    if (length == 0) return std::nullopt;
    const std::string_view bare = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return std::string(bare);
  }

  std::optional<std::string> quotedText() {
    const char quote = rest_.front();
    const std::array<char, 2> special = {quote, '\\'};
    rest_.remove_prefix(1);
    std::string string;
    while (true) {
      const std::size_t plain = rest_.find_first_of({special.data(), special.size()});
      if (plain == std::string_view::npos) return std::nullopt;
      string += rest_.substr(0, plain);
      rest_.remove_prefix(plain);
      if (take(quote)) return string;
      if (!takeEscape(string)) return std::nullopt;
    }
  }

  // Takes an escape sequence. A character without a special meaning stands for itself, the end of a
  // line included.
  bool takeEscape(std::string& string) {
    rest_.remove_prefix(1);
    if (rest_.empty()) return false;
    const char c = rest_.front();
    if (isOctalDigit(c)) return takeOctal(string);
    if (c == 'U' || c == 'u') return takeUnits(string);
    static constexpr std::string_view letters = "abfnrtv";
    static constexpr std::string_view meanings = "\a\b\f\n\r\t\v";
    const std::size_t place = letters.find(c);
    string += place == std::string_view::npos ? c : meanings[place];
    rest_.remove_prefix(1);
    return true;
  }

  bool takeOctal(std::string& string) {
    unsigned code = 0;
    for (int digits = 0; digits < 3 && !rest_.empty() && isOctalDigit(rest_.front()); ++digits) {
      code = code * 8 + static_cast<unsigned>(rest_.front() - '0');
      rest_.remove_prefix(1);
    }
    if (code > 0xFF) return false;
    const char16_t unit =
        code < 0x80 ? static_cast<char16_t>(code) : nextStepCharacters[code - 0x80];
    string += utf8FromUTF16({&unit, 1});
    return true;
  }

  // Takes two escapes for a character beyond the first plane: one for each half.
  bool takeUnits(std::string& string) {
    const std::optional<char16_t> unit = takeUnit();
    if (!unit) return false;
    std::u16string units(1, *unit);
    if (*unit >= 0xD800 && *unit < 0xDC00) {
      const std::string_view afterFirst = rest_;
      const std::optional<char16_t> second = takeFollowingUnit();
      const bool isLow = second && *second >= 0xDC00 && *second < 0xE000;
      if (isLow) {
        units += *second;
      } else {
        rest_ = afterFirst;
      }
    }
    string += utf8FromUTF16(units);
    return true;
  }

  std::optional<char16_t> takeFollowingUnit() {
    if (!rest_.starts_with("\\U") && !rest_.starts_with("\\u")) return std::nullopt;
    rest_.remove_prefix(1);
    return takeUnit();
  }

  // Takes the letter of an escape and up to four digits.
  std::optional<char16_t> takeUnit() {
    rest_.remove_prefix(1);
    int code = 0;
    int digits = 0;
    while (digits < 4 && !rest_.empty() && hexDigitValue(rest_.front()) >= 0) {
      code = code * 16 + hexDigitValue(rest_.front());
      rest_.remove_prefix(1);
      ++digits;
    }
    if (digits == 0) return std::nullopt;
    return static_cast<char16_t>(code);
  }

  bool take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  // Returns the length in bytes of a space at the front; 0 if another character is there.
  [[nodiscard]] std::size_t spaceAtFront() const {
    if (rest_.starts_with(lineSeparator) || rest_.starts_with(paragraphSeparator)) return 3;
    if (rest_.empty()) return 0;
    const char c = rest_.front();
    return c == ' ' || (c >= '\t' && c <= '\r') ? 1 : 0;
  }

  // Skips spaces and comments. False if a comment has no end.
  bool skipSpace() {
    while (true) {
      if (const std::size_t space = spaceAtFront()) {
        rest_.remove_prefix(space);
      } else if (rest_.starts_with("//")) {
        skipLine();
      } else if (rest_.starts_with("/*")) {
        const std::size_t end = rest_.find("*/", 2);
        if (end == std::string_view::npos) return false;
        rest_.remove_prefix(end + 2);
      } else {
        return true;
      }
    }
  }

  void skipLine() {
    while (!rest_.empty() && rest_.front() != '\n' && rest_.front() != '\r' &&
           !rest_.starts_with(lineSeparator) && !rest_.starts_with(paragraphSeparator)) {
      rest_.remove_prefix(1);
    }
  }

  std::string_view rest_;
  std::size_t maximumLevels_;
  Allowance values_;
};

// The caller may store the text as UTF-16, which takes up to twice as many bytes and a mark.
constexpr std::size_t maximumTextBytes = maximumBytes / 2 - 1;

class TextWriter {
 public:
  std::optional<std::string> write(const PropertyList::Dictionary& dictionary) {
    if (!values_.take()) return std::nullopt;
    for (const PropertyList::Dictionary::Entry& entry : dictionary) {
      if (!writePair(entry, 0)) return std::nullopt;
      text_ += '\n';
    }
    if (text_.size() > maximumTextBytes) return std::nullopt;
    return std::move(text_);
  }

 private:
  // False if the pair cannot be written.
  bool writePair(const PropertyList::Dictionary::Entry& entry, std::size_t level) {
    if (!writeQuoted(entry.first)) return false;
    text_ += " = ";
    if (!writeValue(entry.second, level + 1)) return false;
    text_ += ';';
    return true;
  }

  // The level is the number of containers around the value.
  bool writeValue(const PropertyList& list, std::size_t level) {
    // Stops early: a text that is too long already need not be completed.
    if (!values_.take() || text_.size() > maximumTextBytes) return false;
    return std::visit([&](const auto& value) { return write(value, level); }, list.value());
  }

  bool write(const std::string& string, std::size_t) { return writeQuoted(string); }
  bool write(bool flag, std::size_t) { return writeQuoted(flag ? "1" : "0"); }
  bool write(double real, std::size_t) { return writeQuoted(textFromReal(real)); }

  bool write(PropertyList::Integer integer, std::size_t) {
    const std::optional<std::string> text = textFromInteger(integer);
    return text && writeQuoted(*text);
  }

  bool write(PropertyList::Date date, std::size_t) {
    const std::optional<std::string> text = textFromDate(date);
    return text && writeQuoted(*text);
  }

  bool write(const PropertyList::Data& data, std::size_t) {
    if (data.bytes.size() > maximumTextBytes) return false;
    text_ += '<';
    for (const char c : data.bytes) appendHex(static_cast<unsigned char>(c), 2);
    text_ += '>';
    return true;
  }

  bool write(const PropertyList::Array& array, std::size_t level) {
    if (level >= maximumLevels) return false;
    text_ += '(';
    for (const PropertyList& value : array) {
      if (&value != array.data()) text_ += ", ";
      if (!writeValue(value, level + 1)) return false;
    }
    text_ += ')';
    return true;
  }

  bool write(const PropertyList::Dictionary& dictionary, std::size_t level) {
    if (level >= maximumLevels) return false;
    text_ += '{';
    for (const PropertyList::Dictionary::Entry& entry : dictionary) {
      if (!writePair(entry, level)) return false;
      text_ += ' ';
    }
    text_ += '}';
    return true;
  }

  bool writeQuoted(std::string_view string) {
    if (string.size() > maximumTextBytes || !isValidUTF8(string)) return false;
    text_ += '"';
    while (!string.empty()) {
      const std::size_t length = isHighControl(string) ? 2 : 1;
      appendEscaped(string.substr(0, length));
      string.remove_prefix(length);
    }
    text_ += '"';
    return true;
  }

  // Finds U+0080 to U+009F at the front: two bytes, of which the second is the code.
  static bool isHighControl(std::string_view utf8) {
    return utf8.size() >= 2 && utf8[0] == '\xC2' && static_cast<unsigned char>(utf8[1]) < 0xA0;
  }

  void appendEscaped(std::string_view character) {
    switch (character.front()) {
      case '"':
        text_ += "\\\"";
        return;
      case '\\':
        text_ += "\\\\";
        return;
      case '\n':
        text_ += "\\n";
        return;
      case '\r':
        text_ += "\\r";
        return;
      case '\t':
        text_ += "\\t";
        return;
      default:
        break;
    }
    const auto code = static_cast<unsigned char>(character.back());
    const bool isControl = character.size() == 2 || code < 0x20 || code == 0x7F;
    if (!isControl) {
      text_ += character;
      return;
    }
    text_ += "\\U";
    appendHex(code, 4);
  }

  void appendHex(unsigned value, unsigned digits) {
    while (digits-- > 0) text_ += "0123456789abcdef"[value >> (4 * digits) & 0xF];
  }

  std::string text_;
  Allowance values_{maximumValues};
};

}  // namespace

std::optional<PropertyList> readText(std::string_view utf8, const Bounds& bounds) {
  return TextReader(utf8, bounds).read();
}

}  // namespace propertylist

std::optional<std::string> stringsFileText(const PropertyList::Dictionary& dictionary) {
  return propertylist::TextWriter().write(dictionary);
}

}  // namespace qbdkr
