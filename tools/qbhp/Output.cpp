#include "tools/qbhp/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
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

// A character of a text, and the bytes that it takes; one byte without a character if the text is
// not UTF-8 there.
struct Character {
  std::optional<char32_t> code;
  std::size_t size = 1;
};

Character firstCharacter(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  const std::size_t size = lead >= 0xF0 ? 4 : (lead >= 0xE0 ? 3 : 2);
  if (lead < 0xC2 || lead > 0xF4 || size > text.size()) return {std::nullopt, 1};
  char32_t code = lead & (0xFFU >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return {std::nullopt, 1};
    code = code << 6U | (byte(i) & 0x3FU);
  }
  constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = code >= 0xD800 && code < 0xE000;
  if (code < smallest[size] || code > 0x10FFFF || isSurrogate) return {std::nullopt, 1};
  return {code, size};
}

// Tells whether a terminal would act on a character, or show what follows it in another order.
bool isControl(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x200E && code <= 0x200F) ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string inHexadecimal(std::uint32_t number, std::size_t digits) {
  std::string text(digits, '0');
  for (std::size_t i = digits; i-- > 0; number >>= 4U) text[i] = "0123456789abcdef"[number & 0xFU];
  return text;
}

std::string escapeOf(char32_t code) {
  switch (code) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return code < 0x80 ? "\\x" + inHexadecimal(code, 2) : "\\u" + inHexadecimal(code, 4);
  }
}

std::string escapedBut(std::string_view kept, std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto [code, size] = firstCharacter(text);
    if (!code) {
      result += "\\x" + inHexadecimal(static_cast<unsigned char>(text.front()), 2);
    } else if (isControl(*code) && kept.find(text.front()) == std::string_view::npos) {
      result += escapeOf(*code);
    } else {
      result += text.substr(0, size);
    }
    text.remove_prefix(size);
  }
  return result;
}

}  // namespace

std::string escaped(std::string_view text) { return escapedBut("", text); }

Output::Output()
    : isTerminal_(::isatty(STDOUT_FILENO) == 1), hasColours_(isTerminal_ && wantsColours()) {}

std::size_t Output::columns() const {
  winsize size{};
  if (!isTerminal_ || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return usualColumns;
  }
  return size.ws_col;
}

void Output::outside(std::string_view text) {
  text_ += isTerminal_ ? escapedBut("\n\t", text) : std::string(text);
  if (!text.ends_with('\n')) text_ += '\n';
}

void Output::json(const JSON& value) {
  constexpr int indent = 2;
  line(value.dump(indent, ' ', isTerminal_, JSON::error_handler_t::replace));
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
