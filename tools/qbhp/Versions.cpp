// qbhp versions: compares two versions as the framework does.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ClientComm/QBHPVersion.h>

#include "Platform/Text/Text.h"
#include "tools/qbhp/Command.h"

namespace qbdkr::tool {
namespace {

struct VersionsArguments {
  std::string first;
  std::string second;
  std::string expected;
};

struct Relation {
  const char* word;
  char sign;
};

Relation relationOf(int order) {
  if (order < 0) return {"older", '<'};
  return order > 0 ? Relation{"newer", '>'} : Relation{"same", '='};
}

std::vector<std::string> componentsOf(const std::string& version) {
  std::vector<std::string> components;
  for (const auto& component : splitVersionString(version)) {
    components.push_back(utf8FromUTF16(component));
  }
  return components;
}

// The components that decided. One is absent if its version ends there.
struct Decision {
  std::size_t place;  // counted from 1
  std::optional<std::string> first;
  std::optional<std::string> second;
};

std::optional<Decision> decisionOf(const std::vector<std::string>& first,
                                   const std::vector<std::string>& second) {
  const std::size_t common = std::min(first.size(), second.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (compareVersion(first[i], second[i]) != 0) return Decision{i + 1, first[i], second[i]};
  }
  if (first.size() == second.size()) return std::nullopt;
  const auto at = [common](const std::vector<std::string>& components) {
    return components.size() > common ? std::optional(components[common]) : std::nullopt;
  };
  return Decision{common + 1, at(first), at(second)};
}

const char* kindOf(const std::string& component) {
  switch (typeOfCharacter(utf16FromUTF8(component))) {
    case CharacterType::digit:
      return "a number";
    case CharacterType::dot:
      return "a dot";
    case CharacterType::other:
      break;
  }
  return "letters";
}

std::string described(const std::optional<std::string>& component) {
  return component ? '"' + escaped(*component) + "\" (" + kindOf(*component) + ")" : "nothing";
}

JSON asJSON(const std::optional<std::string>& component) {
  return component ? JSON(*component) : JSON(nullptr);
}

Exit compare(const Commands& commands, const VersionsArguments& arguments, Output& output) {
  const int order = compareVersion(arguments.first, arguments.second);
  const auto [word, sign] = relationOf(order);
  const auto first = componentsOf(arguments.first);
  const auto second = componentsOf(arguments.second);
  const auto decision = decisionOf(first, second);
  if (commands.wantsJSON()) {
    JSON result{{"relation", word}, {"order", order}, {"first", first}, {"second", second}};
    result["decidedBy"] = decision ? JSON{{"component", decision->place},
                                          {"first", asJSON(decision->first)},
                                          {"second", asJSON(decision->second)}}
                                   : JSON(nullptr);
    output.json(result);
  } else {
    output.line(output.styled(Style::heading, word) + ": " + escaped(arguments.first) + ' ' + sign +
                ' ' + escaped(arguments.second));
    if (decision) {
      output.line("decided by component " + std::to_string(decision->place) + ": " +
                  described(decision->first) + ' ' + sign + ' ' + described(decision->second));
    }
  }
  const bool isExpected = arguments.expected.empty() || arguments.expected == word;
  return isExpected ? Exit::yes : Exit::no;
}

}  // namespace

void addVersions(Commands& commands) {
  const auto arguments = std::make_shared<VersionsArguments>();
  CLI::App& command = commands.add(
      "versions", "Compare two versions as the framework does",
      [&commands, arguments](Output& output) { return compare(commands, *arguments, output); });
  command.add_option("A", arguments->first, "A version")->required()->type_name("");
  command.add_option("B", arguments->second, "The version to compare it with")
      ->required()
      ->type_name("");
  command.add_option("--is", arguments->expected, "Exit with 1 unless A is older, same or newer")
      ->check(CLI::IsMember({"older", "same", "newer"}).description(""))
      ->type_name("RELATION");
  commands.offerJSON(command);
}

}  // namespace qbdkr::tool
