#include "tools/qbhp/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace qbdkr::tool {
namespace {

constexpr std::size_t usualColumns = 80;

bool wantsColours() {
  const char* refusal = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  return (refusal == nullptr || *refusal == '\0') && terminal != nullptr &&
         std::string_view(terminal) != "dumb";
}

// Counts the columns of a unit of UTF-16. Each half of a pair has one.
std::size_t columnsOfUnit(char16_t unit) {
  struct Range {
    char16_t first;
    char16_t last;
  };
  constexpr std::array<Range, 8> wide{{{0x1100, 0x115F},    // Hangul
                                       {0x2E80, 0x303E},    // radicals, punctuation
                                       {0x3041, 0xA4CF},    // Kana to Yi
                                       {0xAC00, 0xD7A3},    // Hangul syllables
                                       {0xF900, 0xFAFF},    // compatibility ideographs
                                       {0xFE30, 0xFE6F},    // vertical and small forms
                                       {0xFF00, 0xFF60},    // full-width forms
                                       {0xFFE0, 0xFFE6}}};  // full-width signs
  return std::ranges::any_of(
             wide, [unit](Range range) { return unit >= range.first && unit <= range.last; })
             ? 2
             : 1;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (const char16_t unit : utf16FromUTF8(text)) columns += columnsOfUnit(unit);
  return columns;
}

std::string shortenedAtTheLeft(const std::string& text, std::size_t columns) {
  if (columnsOf(text) <= columns) return text;
  const std::u16string units = utf16FromUTF8(text);
  std::size_t from = units.size();
  std::size_t used = 1;
  while (from > 0 && used + columnsOfUnit(units[from - 1]) <= columns)
    used += columnsOfUnit(units[--from]);
  const bool isHalf = from < units.size() && (units[from] & 0xFC00U) == 0xDC00U;
  return "…" + utf8FromUTF16(std::u16string_view(units).substr(isHalf ? from + 1 : from));
}

std::string_view beginningOf(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80) --size;
  return text.substr(0, size);
}

Output::Output()
    : isTerminal_(::isatty(STDOUT_FILENO) == 1), hasColours_(isTerminal_ && wantsColours()) {}

std::size_t Output::columns() const {
  winsize size{};
  if (!isTerminal_ || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return usualColumns;
  }
  return size.ws_col;
}

void Output::wrapped(const std::string& beginning, std::size_t width, std::string_view text) {
  std::string current = beginning;
  std::size_t filled = width;
  while (!text.empty()) {
    const auto end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    const std::size_t size = columnsOf(word);
    if (filled > width && filled + 1 + size > columns()) {
      line(current);
      current.assign(width, ' ');
      filled = width;
    }
    if (filled > width) {
      current += ' ';
      ++filled;
    }
    current += word;
    filled += size;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  line(current);
}

void Output::outside(std::string_view text) {
  text_ += isTerminal_ ? escaped(text, "\n\t") : std::string(text);
  if (!text.ends_with('\n')) text_ += '\n';
}

void Output::outsideLabelled(std::string_view text) {
  constexpr std::size_t longestLabel = 14;  // "Helper agent: "
  if (!isTerminal_) return outside(text);
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    const std::string whole = escaped(text.substr(0, end));
    const auto colon = whole.find(": ");
    const std::size_t width =
        colon == std::string::npos || colon + 2 > longestLabel ? 0 : colon + 2;
    const Style style = width == 0 ? Style::plain : Style::heading;
    wrapped(styled(style, whole.substr(0, width)), width, whole.substr(width));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void Output::json(const JSON& value) {
  constexpr int indent = 2;
  line(value.dump(indent, ' ', isTerminal_, JSON::error_handler_t::replace));
}

void Output::jsonLine(const JSON& value) {
  line(value.dump(-1, ' ', isTerminal_, JSON::error_handler_t::replace));
}

std::string Output::shown(std::string_view text) const {
  return isTerminal_ ? escaped(text) : std::string(text);
}

std::string Output::styled(Style style, std::string_view text) const {
  if (!hasColours_ || style == Style::plain) return std::string(text);
  const char* code = style == Style::heading ? "1" : (style == Style::good ? "32" : "31");
  return std::string("\x1b[") + code + 'm' + std::string(text) + "\x1b[0m";
}

std::optional<std::string> Output::write() {
  std::string_view left = text_;
  while (!left.empty()) {
    const auto written = ::write(STDOUT_FILENO, left.data(), left.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EPIPE) break;
    if (written < 0) return std::generic_category().message(errno);
    left.remove_prefix(static_cast<std::size_t>(written));
  }
  text_.clear();
  return std::nullopt;
}

}  // namespace qbdkr::tool
