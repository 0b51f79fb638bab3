#include "tools/qbhp/Output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
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

}  // namespace

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
    if (filled > width && filled + 1 + word.size() > columns()) {
      line(current);
      current.assign(width, ' ');
      filled = width;
    }
    if (filled > width) {
      current += ' ';
      ++filled;
    }
    current += word;
    filled += word.size();
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  line(current);
}

void Output::outside(std::string_view text) {
  text_ += isTerminal_ ? escaped(text, "\n\t") : std::string(text);
  if (!text.ends_with('\n')) text_ += '\n';
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
