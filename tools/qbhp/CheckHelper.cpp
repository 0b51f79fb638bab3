// qbhp check-helper: launches a helper agent on a private bus, and holds it against the contract.

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/qbhp/Command.h"
#include "tools/qbhp/HelperChecks.h"
#include "tools/qbhp/HelperTrial.h"

namespace qbdkr::tool {
namespace {

using Result = Verdict::Result;

struct CheckArguments {
  std::string helper;
  std::vector<std::string> only;
  double seconds = 10;
  std::string junit;
  bool wantsList = false;
  bool wantsTAP = false;
};

struct CheckOutcome {
  const HelperCheck* check;
  Verdict verdict;
  double seconds;
};

const char* wordOf(Result result) {
  switch (result) {
    case Result::ok:
      return "ok";
    case Result::skipped:
      return "skipped";
    case Result::failed:
      break;
  }
  return "failed";
}

Style styleOf(Result result) {
  if (result == Result::ok) return Style::good;
  return result == Result::failed ? Style::bad : Style::plain;
}

std::size_t countOf(const std::vector<CheckOutcome>& outcomes, Result result) {
  return static_cast<std::size_t>(std::ranges::count(
      outcomes, result, [](const CheckOutcome& outcome) { return outcome.verdict.result; }));
}

std::vector<const HelperCheck*> chosenBy(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (std::ranges::find(helperChecks(), std::string_view(name), &HelperCheck::name) ==
        helperChecks().end()) {
      throw UsageFailure("no check has the name \"" + name + "\" (see --list)");
    }
  }
  std::vector<const HelperCheck*> chosen;
  for (const HelperCheck& check : helperChecks()) {
    if (names.empty() || std::ranges::find(names, check.name) != names.end()) {
      chosen.push_back(&check);
    }
  }
  return chosen;
}

constexpr std::size_t nameWidth = 22;
constexpr std::size_t resultWidth = 9;

std::string padded(std::string_view text, std::size_t width) {
  return std::string(text) + std::string(width - std::min(width, text.size()), ' ');
}

void addHeading(Output& output) {
  output.line(output.styled(Style::heading,
                            padded("CHECK", nameWidth) + padded("RESULT", resultWidth) + "SEEN"));
}

void addRow(Output& output, const CheckOutcome& outcome) {
  const std::string result = wordOf(outcome.verdict.result);
  output.wrapped(padded(outcome.check->name, nameWidth) +
                     output.styled(styleOf(outcome.verdict.result), result) +
                     std::string(resultWidth - result.size(), ' '),
                 nameWidth + resultWidth, escaped(outcome.verdict.seen));
}

void addCounts(Output& output, const std::vector<CheckOutcome>& outcomes) {
  output.line("");
  output.line(std::to_string(countOf(outcomes, Result::ok)) + " ok, " +
              std::to_string(countOf(outcomes, Result::failed)) + " failed, " +
              std::to_string(countOf(outcomes, Result::skipped)) + " skipped");
}

void addJSON(Output& output, const std::string& helper, const std::vector<CheckOutcome>& outcomes) {
  JSON list = JSON::array();
  for (const auto& [check, verdict, seconds] : outcomes) {
    list.push_back({{"name", check->name},
                    {"title", check->title},
                    {"result", wordOf(verdict.result)},
                    {"seen", verdict.seen},
                    {"seconds", seconds}});
  }
  output.json({{"helper", helper},
               {"ok", countOf(outcomes, Result::ok)},
               {"failed", countOf(outcomes, Result::failed)},
               {"skipped", countOf(outcomes, Result::skipped)},
               {"checks", list}});
}

// "#" begins a directive in TAP.
std::string forTAP(std::string_view text) {
  std::string result;
  for (const char character : escaped(text)) {
    if (character == '#' || character == '\\') result += '\\';
    result += character;
  }
  return result;
}

void addPlan(Output& output, std::size_t checks) {
  output.line("TAP version 13");
  output.line("1.." + std::to_string(checks));
}

void addTAP(Output& output, const CheckOutcome& outcome, std::size_t number) {
  const auto& [check, verdict, seconds] = outcome;
  std::string line = verdict.result == Result::failed ? "not ok " : "ok ";
  line += std::to_string(number) + " - " + check->name + ": " + forTAP(check->title);
  if (verdict.result == Result::skipped) line += " # SKIP " + forTAP(verdict.seen);
  output.line(line);
  if (verdict.result != Result::failed) return;
  output.line("  ---");
  output.line("  message: " + JSON(escaped(verdict.seen)).dump());  // JSON is YAML
  output.line("  ...");
}

std::string forXML(std::string_view text) {
  std::string result;
  for (const char character : escaped(text)) {
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += character;
    }
  }
  return result;
}

void writeJUnit(const std::string& path, const std::string& helper,
                const std::vector<CheckOutcome>& outcomes) {
  std::ofstream file(path);
  file << std::fixed << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\""
       << forXML(helper) << R"(" tests=")" << outcomes.size() << R"(" failures=")"
       << countOf(outcomes, Result::failed) << R"(" errors="0" skipped=")"
       << countOf(outcomes, Result::skipped) << "\">\n";
  for (const auto& [check, verdict, seconds] : outcomes) {
    file << R"(  <testcase classname="check-helper" name=")" << check->name << R"(" time=")"
         << seconds << '"';
    if (verdict.result == Result::ok) {
      file << "/>\n";
    } else {
      const char* element = verdict.result == Result::failed ? "failure" : "skipped";
      file << "><" << element << " message=\"" << forXML(verdict.seen) << "\"/></testcase>\n";
    }
  }
  if (!(file << "</testsuite>\n").flush()) throw Failure("cannot write " + path);
}

void writeNow(Output& output) {
  if (const auto failure = output.write()) throw Failure("cannot write the output: " + *failure);
}

// Makes the checks. A check may take long, so a table and TAP are written line by line.
std::vector<CheckOutcome> outcomesOf(const Commands& commands, const CheckArguments& arguments,
                                     const std::string& directory, Output& output) {
  using Clock = std::chrono::steady_clock;
  const auto longest = std::chrono::ceil<std::chrono::milliseconds>(
      std::chrono::duration<double>(arguments.seconds));
  const auto trial = HelperTrial::make(directory, arguments.helper, longest);
  const auto chosen = chosenBy(arguments.only);
  const bool isTable = !commands.wantsJSON() && !arguments.wantsTAP;
  if (isTable) addHeading(output);
  if (arguments.wantsTAP) addPlan(output, chosen.size());
  writeNow(output);
  CheckScene scene{*trial, arguments.helper};
  std::vector<CheckOutcome> outcomes;
  bool isHopeless = false;  // no need to wait for its name with each check
  for (const HelperCheck* check : chosen) {
    const auto begin = Clock::now();
    Verdict verdict =
        isHopeless ? Verdict{Result::skipped, "it cannot be launched"} : runCheck(*check, scene);
    const std::string_view name = check->name;
    isHopeless = isHopeless ||
                 (name == "name" && verdict.result == Result::failed && !scene.trial.isRunning());
    outcomes.push_back(
        {check, std::move(verdict), std::chrono::duration<double>(Clock::now() - begin).count()});
    if (isTable) addRow(output, outcomes.back());
    if (arguments.wantsTAP) addTAP(output, outcomes.back(), outcomes.size());
    writeNow(output);
  }
  if (isTable) addCounts(output, outcomes);
  return outcomes;
}

Exit check(const Commands& commands, const CheckArguments& arguments,
           const std::string& directory) {
  Output output;
  const auto outcomes = outcomesOf(commands, arguments, directory, output);
  if (commands.wantsJSON()) addJSON(output, arguments.helper, outcomes);
  writeNow(output);
  if (!arguments.junit.empty()) writeJUnit(arguments.junit, arguments.helper, outcomes);
  // A check that was chosen and could not be made is no success.
  const bool isChecked = countOf(outcomes, Result::ok) > 0 || !arguments.only.empty();
  return countOf(outcomes, Result::failed) == 0 && isChecked ? Exit::yes : Exit::no;
}

void addList(const Commands& commands, Output& output) {
  JSON list = JSON::array();
  for (const HelperCheck& check : helperChecks()) {
    list.push_back({{"name", check.name}, {"title", check.title}});
    if (!commands.wantsJSON()) {
      output.wrapped(padded(check.name, nameWidth), nameWidth, check.title);
    }
  }
  if (commands.wantsJSON()) output.json(list);
}

Exit run(const Commands& commands, const CheckArguments& arguments, Output& output) {
  if (arguments.wantsList) {
    addList(commands, output);
    return Exit::yes;
  }
  if (arguments.helper.empty()) throw UsageFailure("HELPER.app is required (see --help)");
  if (arguments.wantsTAP && commands.wantsJSON()) {
    throw UsageFailure("--json and --tap exclude each other (see --help)");
  }
  static_cast<void>(chosenBy(arguments.only));
  return runGuarded([&commands, &arguments](const std::string& directory) {
    return check(commands, arguments, directory);
  });
}

}  // namespace

void addCheckHelper(Commands& commands) {
  const auto arguments = std::make_shared<CheckArguments>();
  CLI::App& command = commands.add(
      "check-helper", "Hold a helper agent against the contract",
      [&commands, arguments](Output& output) { return run(commands, *arguments, output); });
  command.add_option("HELPER", arguments->helper, "The bundle of the helper agent, as Helper.app")
      ->type_name("");
  command.add_option("--only", arguments->only, "Make this check alone; may be repeated")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command.add_flag("--list", arguments->wantsList, "Print the checks");
  Commands::offerSeconds(command, "--timeout", arguments->seconds,
                         "Wait so long at most, each time (default 10)", 0.01);
  command.add_flag("--tap", arguments->wantsTAP, "Print the Test Anything Protocol");
  command.add_option("--junit", arguments->junit, "Write the results to a file of JUnit's form")
      ->type_name("FILE");
  commands.offerJSON(command);
}

}  // namespace qbdkr::tool
