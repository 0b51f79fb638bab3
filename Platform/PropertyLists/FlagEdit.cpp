#include "Platform/PropertyLists/FlagEdit.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "Platform/PropertyLists/PropertyListBounds.h"
#include "Platform/PropertyLists/PropertyListScalars.h"
#include "Platform/PropertyLists/XMLPropertyList.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

using namespace propertylist;

// Marks the bytes that stand in a text of XML as they are.
constexpr auto plainBytes = [] {
  std::array<bool, 256> plain{};
  for (int c = 0; c < 256; ++c) {
    const auto byte = static_cast<char>(c);
    plain[static_cast<std::size_t>(c)] =
        isXMLByte(byte) && byte != '<' && byte != '>' && byte != '&' && byte != '\r';
  }
  return plain;
}();

std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && plainBytes[static_cast<unsigned char>(text[length])]) ++length;
  return length;
}

bool isWrittenInteger(std::string_view text) {
  const auto integer = integerFromText(text);
  return integer && textFromInteger(*integer) == text;
}

bool isWrittenReal(std::string_view text) {
  const auto real = realFromText(text);
  return real && textFromReal(*real) == text;
}

bool isWrittenDate(std::string_view text) {
  const auto date = dateFromText(text);
  return date && textFromDate(*date) == text;
}

// Follows the form that writeXML() writes of a dictionary, and accepts nothing else. Notes the
// value of one key on the way. A level is the number of containers around a value.
class WrittenForm {
 public:
  WrittenForm(std::string_view text, std::string_view key) : rest_(text), key_(key) {}

  [[nodiscard]] bool isFollowed() {
    return take(xmlBegin) && values_.take() && take("<dict>\n") && takeEntries(0) &&
           rest_ == xmlEnd;
  }

  // Return the text from the key's value on, and its length; at the end of the dictionary, and 0,
  // if the key is missing.
  [[nodiscard]] std::string_view fromValue() const { return fromValue_; }
  [[nodiscard]] std::size_t valueLength() const { return valueLength_; }
  // Tells whether the list may have another value.
  [[nodiscard]] bool hasRoom() { return values_.take(); }

 private:
  bool take(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }

  bool takeIndent(std::size_t level) {
    if (rest_.size() < level ||
        rest_.substr(0, level).find_first_not_of('\t') != std::string_view::npos) {
      return false;
    }
    rest_.remove_prefix(level);
    return true;
  }

  // Takes a text with its escapes, up to anything else.
  std::string_view takeText() {
    const std::string_view begin = rest_;
    do {
      rest_.remove_prefix(plainLength(rest_));
    } while (take("&amp;") || take("&lt;") || take("&gt;") || take("&#13;"));
    return begin.substr(0, begin.size() - rest_.size());
  }

  bool takeScalar(bool (*isWritten)(std::string_view), std::string_view end) {
    return isWritten(takeText()) && take(end);
  }

  bool takeString() {
    takeText();
    return take("</string>\n");
  }

  bool takeKey(std::size_t level) {
    if (!takeIndent(level) || !take("<key>")) return false;
    keys_.push_back(takeText());
    return take("</key>\n");
  }

  bool takeValue(std::size_t level) {
    if (!values_.take() || !takeIndent(level)) return false;
    if (take("<string>")) return takeString();
    if (take("<true/>\n") || take("<false/>\n")) return true;
    if (take("<integer>")) return takeScalar(isWrittenInteger, "</integer>\n");
    if (take("<real>")) return takeScalar(isWrittenReal, "</real>\n");
    if (take("<date>")) return takeScalar(isWrittenDate, "</date>\n");
    if (level == maximumLevels) return false;
    if (take("<array>\n")) return takeElements(level);
    if (take("<dict>\n")) return takeEntries(level);
    return take("<array/>\n") || take("<dict/>\n");
  }

  bool takeElements(std::size_t level) {
    while (takeValue(level + 1)) {
      if (isEnd(level)) return takeIndent(level) && take("</array>\n");
    }
    return false;
  }

  bool takeEntries(std::size_t level) {
    const std::size_t firstKey = keys_.size();
    while (takeKey(level + 1)) {
      const std::string_view fromValue = rest_;
      if (!takeValue(level + 1)) return false;
      if (level == 0) noteValue(fromValue);
      if (isEnd(level)) return takeIndent(level) && take("</dict>\n") && areUnique(firstKey);
    }
    return false;
  }

  // A further entry is indented once more.
  [[nodiscard]] bool isEnd(std::size_t level) const {
    return rest_.size() <= level || rest_[level] != '\t';
  }

  void noteValue(std::string_view fromValue) {
    if (keys_.back() == key_) {
      fromValue_ = fromValue;
      valueLength_ = fromValue.size() - rest_.size();
    } else if (valueLength_ == 0) {
      fromValue_ = rest_;
    }
  }

  // Forgets the keys of a dictionary, too.
  bool areUnique(std::size_t firstKey) {
    const auto first = keys_.begin() + static_cast<std::ptrdiff_t>(firstKey);
    std::sort(first, keys_.end());
    const bool isUnique = std::adjacent_find(first, keys_.end()) == keys_.end();
    keys_.erase(first, keys_.end());
    return isUnique;
  }

  std::string_view rest_;
  std::string_view key_;
  std::string_view fromValue_;
  std::size_t valueLength_ = 0;
  Allowance values_{maximumValues};
  std::vector<std::string_view> keys_;  // of the dictionaries that are open
};

constexpr std::string_view lineOf(bool flag) { return flag ? "\t<true/>\n" : "\t<false/>\n"; }

bool isFlag(std::string_view line) { return line == lineOf(true) || line == lineOf(false); }

}  // namespace

std::optional<FlagEdit> FlagEdit::find(std::string_view text, std::string_view key) {
  const auto isText = [](std::string_view utf8) {
    return isValidUTF8(utf8) && !hasNoncharacter(utf8);
  };
  if (text.size() > maximumBytes || plainLength(key) < key.size() || !isText(key) ||
      !isText(text)) {
    return std::nullopt;
  }
  WrittenForm form(text, key);
  if (!form.isFollowed()) return std::nullopt;
  const std::string_view line = form.fromValue().substr(0, form.valueLength());
  if (!line.empty() && !isFlag(line)) return std::nullopt;
  FlagEdit edit;
  edit.key_ = key;
  edit.before_ = text.substr(0, text.size() - form.fromValue().size());
  edit.after_ = form.fromValue().substr(line.size());
  if (!line.empty()) edit.flag_ = line == lineOf(true);
  edit.hasRoom_ = form.hasRoom();
  return edit;
}

std::optional<std::string> FlagEdit::with(bool flag) const {
  if (!flag_ && !hasRoom_) return std::nullopt;
  std::string text;
  text.reserve(before_.size() + key_.size() + after_.size() + 64);
  text.append(before_);
  if (!flag_) text.append("\t<key>").append(key_).append("</key>\n");
  text.append(lineOf(flag)).append(after_);
  return text.size() > maximumBytes ? std::nullopt : std::optional(std::move(text));
}

}  // namespace qbdkr
