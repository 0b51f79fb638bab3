#include "tools/qbhp/Command.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace qbdkr::tool {
namespace {

// Begins a word that the parser must take as an argument. It would read one that begins with a dash
// as an option, one in brackets as a list, and "--" as the end of a command.
constexpr char wrapping = '\x01';

}  // namespace

CLI::App& Commands::add(const std::string& name, const std::string& summary, Action action) {
  return add(*tool_, name, summary, std::move(action));
}

CLI::App& Commands::add(CLI::App& group, const std::string& name, const std::string& summary,
                        Action action) {
  CLI::App& command = *group.add_subcommand(name, summary);
  actions_.emplace(&command, std::move(action));
  return command;
}

CLI::App& Commands::addGroup(const std::string& name, const std::string& summary) {
  CLI::App& group = *tool_->add_subcommand(name, summary);
  group.require_subcommand(1);
  return group;
}

void Commands::offerJSON(CLI::App& command) {
  command.add_flag("--json", wantsJSON_, "Print JSON");
}

void Commands::offerSeconds(CLI::App& command, const std::string& name, double& seconds,
                            const std::string& summary, double shortest) {
  constexpr double longest = 1e6;
  const auto complaint = [shortest](const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool isNumber = !text.empty() && *end == '\0';
    if (isNumber && value >= shortest && value <= longest) return std::string();  // nor "nan"
    std::ostringstream sentence;
    sentence << '"' << text << "\" is not a number of seconds from " << shortest << " to 1000000";
    return sentence.str();
  };
  command.add_option(name, seconds, summary)
      ->check(CLI::Validator(complaint, "", "seconds"))
      ->type_name("SECONDS");
}

const CLI::App& Commands::parsed() const {
  const CLI::App* command = tool_;
  for (auto under = command->get_subcommands(); !under.empty(); under = command->get_subcommands())
    command = under.front();
  return *command;
}

void Commands::parse(const std::vector<std::string>& words) {
  std::vector<std::string> wrapped;
  bool areArguments = false;
  for (const std::string& word : words) {
    if (!areArguments && word == "--") {
      areArguments = true;
    } else if (areArguments || word.starts_with('[') || word.starts_with(wrapping)) {
      wrapped.push_back(wrapping + word);
    } else {
      wrapped.push_back(word);
    }
  }
  unwrapArguments(*tool_);
  std::ranges::reverse(wrapped);  // the order in which the parser takes them
  tool_->parse(std::move(wrapped));
}

void Commands::unwrapArguments(CLI::App& command) {
  for (CLI::Option* option : command.get_options()) {
    if (option->get_items_expected_max() == 0) continue;  // a flag
    option->transform(CLI::Validator(
        [](std::string& word) {
          if (word.starts_with(wrapping)) word.erase(0, 1);
          return std::string();
        },
        "", "argument"));
  }
  for (CLI::App* under : command.get_subcommands({})) unwrapArguments(*under);
}

Exit Commands::run(Output& output) const { return actions_.at(&parsed())(output); }

std::string Commands::parsedName() const {
  std::string name = tool_->get_name();
  const CLI::App* command = tool_;
  for (auto under = command->get_subcommands(); !under.empty();
       under = command->get_subcommands()) {
    command = under.front();
    name.append(1, ' ').append(command->get_name());
  }
  return name;
}

std::optional<std::string> Commands::faultOfName() const {
  if (parsed().get_require_subcommand_min() == 0) return std::nullopt;
  const auto unknown = tool_->remaining(true);
  if (unknown.empty()) return "a command is required";
  const std::string word = unknown.front().substr(unknown.front().starts_with(wrapping) ? 1 : 0);
  return std::string("there is no ") + (word.starts_with('-') ? "option" : "command") + " \"" +
         word + '"';
}

void complain(const std::string& name, std::string_view sentence) {
  const std::string line = name + ": " + escaped(sentence) + '\n';
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace qbdkr::tool
