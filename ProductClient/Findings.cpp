#include "ProductClient/Findings.h"

#include <algorithm>
#include <utility>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t longestShown = 300;  // bytes, before they are escaped
constexpr std::size_t mostListed = 8;

std::size_t lengthOfCharacter(unsigned char first) {
  if (first < 0xC0) return 1;
  if (first < 0xE0) return 2;
  return first < 0xF0 ? 3 : 4;
}

void appendEscaped(std::string& text, std::string_view bytes) {
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += "\\x";
    text += digits[value >> 4U];
    text += digits[value & 0xFU];
  }
}

// A terminal may take the characters from U+0080 to U+009F for commands, and the marks of direction
// show a text in another order than it has.
bool isControl(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  const auto second = static_cast<unsigned char>(character[1]);
  if (character.size() == 2) return first == 0xC2 && second < 0xA0;
  if (character.size() != 3 || first != 0xE2) return false;
  const auto third = static_cast<unsigned char>(character[2]);
  return (second == 0x80 && (third >= 0xA8 && third <= 0xAE)) ||
         (second == 0x81 && (third >= 0xA6 && third <= 0xA9));
}

}  // namespace

void Findings::ok(std::string_view subject, std::string text) {
  add({Finding::Severity::ok, std::string(subject), std::move(text), {}});
}

void Findings::note(std::string_view subject, std::string text, std::string remedy) {
  add({Finding::Severity::note, std::string(subject), std::move(text), std::move(remedy)});
}

void Findings::warning(std::string_view subject, std::string text, std::string remedy) {
  add({Finding::Severity::warning, std::string(subject), std::move(text), std::move(remedy)});
}

void Findings::error(std::string_view subject, std::string text, std::string remedy) {
  add({Finding::Severity::error, std::string(subject), std::move(text), std::move(remedy)});
}

std::string shown(std::string_view text) {
  std::string result;
  std::size_t at = 0;
  while (at < text.size() && at < longestShown) {
    const auto first = static_cast<unsigned char>(text[at]);
    auto character = text.substr(at, lengthOfCharacter(first));
    if (!isValidUTF8(character)) {
      character = text.substr(at, 1);
      appendEscaped(result, character);
    } else if (isControl(character)) {
      appendEscaped(result, character);
    } else {
      result += character;
    }
    at += character.size();
  }
  return at < text.size() ? result + "..." : result;
}

std::string inQuotes(std::string_view text) { return '"' + shown(text) + '"'; }

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  const std::size_t count = std::min(names.size(), mostListed);
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) list += i + 1 == names.size() ? " and " : ", ";
    list += shown(names[i]);
  }
  if (count < names.size()) list += " and " + std::to_string(names.size() - count) + " more";
  return list;
}

std::string listOf(const std::vector<pid_t>& processes) {
  std::vector<std::string> numbers;
  numbers.reserve(processes.size());
  for (const pid_t process : processes) numbers.push_back(std::to_string(process));
  return (processes.size() == 1 ? "process " : "processes ") + listOf(numbers);
}

}  // namespace qbdkr
