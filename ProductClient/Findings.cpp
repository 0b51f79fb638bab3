#include "ProductClient/Findings.h"

#include <algorithm>
#include <utility>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::size_t longestShown = 300;  // bytes, before they are escaped
constexpr std::size_t mostListed = 8;

}  // namespace

std::string Sentence::text() const {
  std::string text;
  const auto* next = texts.begin();
  for (auto rest = form; !rest.empty();) {
    const auto place = std::min(rest.find('{'), rest.size());
    text += rest.substr(0, place);
    rest.remove_prefix(place);
    if (rest.empty() || next == texts.end()) break;
    const bool isReady = rest.starts_with("{+}");
    text += isReady ? std::string(*next) : shown(*next);
    ++next;
    rest.remove_prefix(isReady ? 3 : 2);
  }
  return text;
}

void Findings::add(Finding::Severity severity, std::string_view subject, const Sentence& text,
                   const Sentence& remedy) {
  add({severity, std::string(subject), text.text(), remedy.text()});
}

void Findings::ok(std::string_view subject, const Sentence& text) {
  add(Finding::Severity::ok, subject, text, "");
}

void Findings::note(std::string_view subject, const Sentence& text, const Sentence& remedy) {
  add(Finding::Severity::note, subject, text, remedy);
}

void Findings::warning(std::string_view subject, const Sentence& text, const Sentence& remedy) {
  add(Finding::Severity::warning, subject, text, remedy);
}

void Findings::error(std::string_view subject, const Sentence& text, const Sentence& remedy) {
  add(Finding::Severity::error, subject, text, remedy);
}

std::string shown(std::string_view text) { return escaped(text, {}, longestShown); }

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
