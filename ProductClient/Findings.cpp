#include "ProductClient/Findings.h"

#include <algorithm>
#include <utility>

#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::size_t longestShown = 300;  // bytes, before they are escaped
constexpr std::size_t mostListed = 8;

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

std::string shown(std::string_view text) { return escaped(text, {}, longestShown); }

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
