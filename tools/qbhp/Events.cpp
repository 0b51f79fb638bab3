// qbhp send and qbhp ask: send an RPC event to an application.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <ClientComm/QBHPAppleEventSender.h>

#include "Platform/Base/StatusMeaning.h"
#include "tools/qbhp/Acting.h"
#include "tools/qbhp/Command.h"
#include "tools/qbhp/MissingBus.h"

namespace qbdkr::tool {
namespace {

struct EventArguments {
  std::string identifier;
  std::string className;
  std::string method;
  std::vector<std::string> texts;
  double seconds = 10;
  std::string host;
};

using Clock = std::chrono::steady_clock;

std::string sentenceOf(OSErr status) {
  return "status " + std::to_string(status) + ": " + meaningOf(status);
}

std::chrono::milliseconds timeOf(const EventArguments& arguments) {
  return std::chrono::ceil<std::chrono::milliseconds>(
      std::chrono::duration<double>(arguments.seconds));
}

std::vector<std::string_view> viewsOf(const std::vector<std::string>& texts) {
  return {texts.begin(), texts.end()};
}

// Returns the arguments of the same command without a host to act for.
std::vector<std::string> repeated(const std::string& name, const EventArguments& arguments,
                                  bool wantsJSON) {
  std::vector<std::string> words{name, "--timeout", std::to_string(arguments.seconds)};
  if (wantsJSON) words.emplace_back("--json");
  words.insert(words.end(), {"--", arguments.identifier, arguments.className, arguments.method});
  words.insert(words.end(), arguments.texts.begin(), arguments.texts.end());
  return words;
}

// Says a status of a request that did not succeed.
Exit concluded(const Commands& commands, OSErr status) {
  if (status == noErr) return Exit::yes;
  const auto obstacle = status == connectionInvalid ? missingBus() : std::nullopt;
  complain(commands.parsedName(),
           obstacle ? "status " + std::to_string(status) + ": " + *obstacle : sentenceOf(status));
  return Exit::no;
}

Exit sendEvent(const Commands& commands, const EventArguments& arguments, Output& output) {
  auto& sender = QBHPAppleEventSender::share();
  const auto deadline = Clock::now() + timeOf(arguments);
  OSErr status = sender.sendEvnet(arguments.identifier, arguments.className, arguments.method,
                                  viewsOf(arguments.texts));
  const bool isPosted = status == noErr;
  if (isPosted) status = sender.flush(deadline);
  if (commands.wantsJSON()) {
    output.json({{"posted", isPosted}, {"status", status}, {"meaning", meaningOf(status)}});
  }
  if (isPosted && status != noErr) {
    complain(commands.parsedName(), status == errAETimeout
                                        ? "posted, but not taken in time (status -1712)"
                                        : "posted, but perhaps lost: " + sentenceOf(status));
    return Exit::no;
  }
  return concluded(commands, status);
}

Exit askEvent(const Commands& commands, const EventArguments& arguments, Output& output) {
  const auto answer = QBHPAppleEventSender::share()
                          .askEvnet(arguments.identifier, arguments.className, arguments.method,
                                    viewsOf(arguments.texts))
                          .wait(RequestLimits::within(timeOf(arguments)));
  if (commands.wantsJSON()) {
    output.json({{"status", answer.status},
                 {"meaning", meaningOf(answer.status)},
                 {"result", answer.value ? JSON(*answer.value) : JSON(nullptr)}});
  } else if (answer.value) {
    output.outside(*answer.value);
  } else if (answer.status == noErr) {
    complain(commands.parsedName(),
             "answered without a text: it is empty, or the method is unknown there");
  }
  return concluded(commands, answer.status);
}

using Run = Exit (*)(const Commands& commands, const EventArguments& arguments, Output& output);

void addEvent(Commands& commands, const std::string& name, const std::string& summary, Run run) {
  const auto arguments = std::make_shared<EventArguments>();
  CLI::App& command =
      commands.add(name, summary, [&commands, arguments, name, run](Output& output) {
        if (arguments->host.empty()) return run(commands, *arguments, output);
        return actAs(arguments->host, repeated(name, *arguments, commands.wantsJSON()));
      });
  command.add_option("IDENTIFIER", arguments->identifier, "Bundle identifier of the application")
      ->required()
      ->type_name("");
  command.add_option("CLASS", arguments->className, "Such as QBHPHelperControl")
      ->required()
      ->type_name("");
  command.add_option("METHOD", arguments->method, "Full name, such as start:prodeuctVersion:")
      ->required()
      ->type_name("");
  command.add_option("TEXT", arguments->texts, "Arguments of the method; any text after --")
      ->type_name("");
  Commands::offerSeconds(command, "--timeout", arguments->seconds,
                         "Wait so long at most (default 10)", 0);
  command.add_option("--as", arguments->host, "Act for this host, from a temporary bundle")
      ->type_name("HOST.app");
  commands.offerJSON(command);
}

}  // namespace

void addEvents(Commands& commands) {
  addEvent(commands, "send", "Post an event, and wait until it is taken", sendEvent);
  addEvent(commands, "ask", "Ask an application, and print its answer", askEvent);
}

}  // namespace qbdkr::tool
