// qbhp watch: shows the RPC events of all processes as they happen.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/Events/EventWatch.h"
#include "Platform/Events/PeerLookup.h"
#include "tools/qbhp/Command.h"
#include "tools/qbhp/MissingBus.h"
#include "tools/qbhp/Output.h"

namespace qbdkr::tool {
namespace {

using Outcome = WatchedEvent::Outcome;

struct WatchArguments {
  std::string identifier;
  std::string className;
  std::string method;
  std::uint64_t count = 0;
  double seconds = 0;
  bool isWide = false;
  bool isRedacted = false;
};

constexpr const char* hidden = "<hidden>";

// Makes SIGINT and SIGTERM readable. A second one ends the tool: it may be blocked by a reader that
// does not read.
class EndingSignals {
 public:
  EndingSignals() {
    if (::pipe(pipe_.data()) != 0) {
      throw Failure("cannot make a pipe: " + std::generic_category().message(errno));
    }
    for (const int end : pipe_) ::fcntl(end, F_SETFD, FD_CLOEXEC);
    writable = pipe_[1];
    struct sigaction action {};
    action.sa_handler = [](int) {
      const int before = errno;
      [[maybe_unused]] const auto written = ::write(writable, "", 1);
      errno = before;
    };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM}) ::sigaction(number, &action, nullptr);
  }

  [[nodiscard]] int descriptor() const { return pipe_[0]; }

 private:
  static inline int writable = -1;
  std::array<int, 2> pipe_{-1, -1};  // open until the tool ends, as the handlers are
};

const char* wordOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::posted:
      return "posted";
    case Outcome::answered:
      return "answered";
    case Outcome::failed:
      return "failed";
    case Outcome::unanswered:
      break;
  }
  return "unanswered";
}

// Returns a time with milliseconds, after its format for whole seconds.
std::string timeText(std::chrono::system_clock::time_point time, bool isUTC, const char* format) {
  const auto milliseconds =
      std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm parts{};
  if (isUTC) {
    ::gmtime_r(&seconds, &parts);
  } else {
    ::localtime_r(&seconds, &parts);
  }
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), format, &parts);
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(milliseconds % 1000));
  return std::string(text.data()) + fraction.data();
}

double millisecondsOf(const WatchedEvent& event) {
  return static_cast<double>(event.duration.count()) / 1000;
}

std::string durationText(const WatchedEvent& event) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), " (%.1f ms)", millisecondsOf(event));
  return text.data();
}

// Writes events as lines of text.
class Lines {
 public:
  explicit Lines(const WatchArguments& arguments) : arguments_(&arguments) {}

  [[nodiscard]] std::string lineOf(const WatchedEvent& event) const {
    std::string line = timeText(event.time, false, "%H:%M:%S") + ' ' + partyText(event.sender) +
                       " -> " + partyText(event.target) + ' ';
    if (!event.event.className || !event.event.methodName) {
      line += "(malformed)";
    } else {
      line += name(*event.event.className) + ' ' + name(*event.event.methodName);
    }
    return line + argumentsText(event) + ' ' + outcomeText(event);
  }

 private:
  static constexpr std::size_t longestText = 60;
  static constexpr std::size_t longestName = 120;
  static constexpr std::size_t mostTexts = 10;

  [[nodiscard]] std::string shortened(std::string_view text, std::size_t size) const {
    if (arguments_->isWide) return escaped(text);
    const auto beginning = beginningOf(text, size);
    return escaped(beginning) + (beginning.size() < text.size() ? "…" : "");
  }

  [[nodiscard]] std::string name(std::string_view text) const {
    return text.empty() ? "\"\"" : shortened(text, longestName);
  }

  [[nodiscard]] std::string partyText(const WatchedParty& party) const {
    if (!party.identifier.empty()) return escaped(party.identifier);
    const bool isUnique = party.name.starts_with(':');
    if (!isUnique || !party.process) return shortened(party.name, longestName);
    return "process " + std::to_string(*party.process) +
           (party.program.empty() ? "" : ' ' + escaped(party.program));
  }

  // Returns a text in quotes, so that its end is seen.
  [[nodiscard]] std::string quoted(std::string_view text) const {
    if (arguments_->isRedacted) return hidden;
    const auto kept = arguments_->isWide ? text : beginningOf(text, longestText);
    std::string marked;
    for (const char byte : kept) {
      if (byte == '"' || byte == '\\') marked += '\\';
      marked += byte;
    }
    std::string result = '"' + escaped(marked) + '"';
    if (kept.size() < text.size()) result += "… (" + std::to_string(text.size()) + " bytes)";
    return result;
  }

  [[nodiscard]] std::string argumentsText(const WatchedEvent& event) const {
    std::string result;
    std::size_t shown = 0;
    for (const std::string& text : event.event.arguments) {
      if (shown == mostTexts && !arguments_->isWide) break;
      result += ' ' + quoted(text);
      ++shown;
    }
    const std::size_t left = event.event.arguments.size() - shown;
    return left == 0 ? result : result + " … " + std::to_string(left) + " more";
  }

  [[nodiscard]] std::string outcomeText(const WatchedEvent& event) const {
    switch (event.outcome) {
      case Outcome::posted:
        return "(posted)";
      case Outcome::answered:
        return "= " + quoted(event.text) + durationText(event);
      case Outcome::failed:
        return "! " + name(event.error) + ' ' + quoted(event.text) + durationText(event);
      case Outcome::unanswered:
        break;
    }
    return "? " + event.text;
  }

  const WatchArguments* arguments_;
};

JSON orNull(const std::string& text) { return text.empty() ? JSON(nullptr) : JSON(text); }

JSON jsonOf(const WatchedParty& party) {
  return {{"name", party.name},
          {"identifier", orNull(party.identifier)},
          {"process", party.process ? JSON(*party.process) : JSON(nullptr)},
          {"program", orNull(party.program)}};
}

JSON jsonOf(const WatchedEvent& event, bool isRedacted) {
  const auto shown = [isRedacted](const std::string& text) {
    return JSON(isRedacted ? hidden : text);
  };
  const auto orNothing = [](const std::optional<std::string>& text) {
    return text ? JSON(*text) : JSON(nullptr);
  };
  JSON arguments = JSON::array();
  for (const std::string& text : event.event.arguments) arguments.push_back(shown(text));
  const bool isAnswered = event.outcome == Outcome::answered;
  const bool isFailed = event.outcome == Outcome::failed;
  return {{"time", timeText(event.time, true, "%Y-%m-%dT%H:%M:%S") + 'Z'},
          {"sender", jsonOf(event.sender)},
          {"target", jsonOf(event.target)},
          {"class", orNothing(event.event.className)},
          {"method", orNothing(event.event.methodName)},
          {"arguments", arguments},
          {"outcome", wordOf(event.outcome)},
          {"result", isAnswered ? shown(event.text) : JSON(nullptr)},
          {"error",
           isFailed ? JSON{{"name", event.error}, {"text", shown(event.text)}} : JSON(nullptr)},
          {"reason", event.outcome == Outcome::unanswered ? JSON(event.text) : JSON(nullptr)},
          {"milliseconds", isAnswered || isFailed ? JSON(millisecondsOf(event)) : JSON(nullptr)}};
}

Exit watch(const Commands& commands, const WatchArguments& arguments, Output& output) {
  if (!arguments.identifier.empty() && !isReachableIdentifier(arguments.identifier)) {
    throw UsageFailure(arguments.identifier + " cannot be the identifier of an application");
  }
  if (const auto obstacle = missingBus()) throw Failure(*obstacle);
  const EndingSignals signals;
  EventWatch watch;
  watch.application = arguments.identifier;
  watch.className = arguments.className;
  watch.methodName = arguments.method;
  if (arguments.seconds > 0) {
    watch.deadline =
        std::chrono::steady_clock::now() + std::chrono::ceil<std::chrono::milliseconds>(
                                               std::chrono::duration<double>(arguments.seconds));
  }
  // An output without a reader is reported without being asked for.
  watch.stops = {{signals.descriptor(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
  watch.onReady = [&] { complain(commands.parsedName(), "watches the session bus"); };
  std::uint64_t seen = 0;
  const Lines lines(arguments);
  watch.onEvent = [&](const WatchedEvent& event) {
    if (commands.wantsJSON()) {
      output.jsonLine(jsonOf(event, arguments.isRedacted));
    } else {
      output.line(lines.lineOf(event));
    }
    if (const auto failure = output.write()) throw Failure("cannot write the output: " + *failure);
    return ++seen != arguments.count;
  };
  if (const auto obstacle = watchEvents(watch)) throw Failure(*obstacle);
  const bool isShort = arguments.seconds > 0 && seen < arguments.count;
  return isShort ? Exit::no : Exit::yes;
}

}  // namespace

void addWatch(Commands& commands) {
  const auto arguments = std::make_shared<WatchArguments>();
  CLI::App& command = commands.add(
      "watch", "Show RPC events of all processes as they happen",
      [&commands, arguments](Output& output) { return watch(commands, *arguments, output); });
  command
      .add_option("IDENTIFIER", arguments->identifier, "Only events from or to this application")
      ->type_name("");
  command.add_option("--class", arguments->className, "Only events of this class")
      ->type_name("CLASS");
  command.add_option("--method", arguments->method, "Only events of this method, by its full name")
      ->type_name("METHOD");
  command.add_option("--count", arguments->count, "End after so many events")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40U).description(""))
      ->type_name("N");
  Commands::offerSeconds(command, "--for", arguments->seconds, "End after this time", 0.001);
  command.add_flag("--wide", arguments->isWide, "Do not shorten anything");
  command.add_flag("--redact", arguments->isRedacted, "Hide arguments, results and error texts");
  commands.offerJSON(command);
  command.footer(
      std::string("A line ends with \"(posted)\", \"= RESULT\", \"! ERROR\" or \"? REASON\".\n"
                  "Texts may be private, such as e-mail addresses: see --redact.\n\n") +
      exitCodes);
}

}  // namespace qbdkr::tool
