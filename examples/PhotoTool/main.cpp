// A host application: it carries a helper agent among its resources, and has it installed, started
// and kept alive. Calls on standard input stand in for a user's clicks.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/RunLoop.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "Calls.h"
#include "Transcript.h"

namespace {

using qbdkr::QBHPHelper;
using qbdkr::QBHPHelperCommunicate;
using qbdkr::RunLoop;

constexpr const char* usage =
    "Usage: PhotoTool [--call NAME ARGUMENT...]\n"
    "With --call it makes one call of those listed below, and tells the result. Otherwise it runs\n"
    "until a signal or \"quit\", and makes the calls that it reads from standard input, one a "
    "line.\n"
    "\"-\" is an absent argument, and 1 and 0 are flags. Calls:\n";

// Shows the helper agent's reports, and passes those of the helper control on to the communicator,
// which acts on them. An upgrade is answered when the user has decided.
class Reports : public qbdkr::QBHPWillHelperExitDelegate,
                public qbdkr::QBHPDidCheckServerOpenDelegate,
                public qbdkr::QBHPProductWillUpgradeDelegate {
 public:
  explicit Reports(const acme::Transcript& transcript) : transcript_(transcript) {}

  void willHelperExit() override {
    transcript_.write("delegate told that the helper will exit");
    QBHPHelperCommunicate::share().willHelperExit();
  }

  void didCheckServerOpen(bool open, const qbdkr::Error* error) override {
    transcript_.write(std::string("delegate told that the helper's server is ") +
                      (open ? "open" : "closed") + (error == nullptr ? "" : ", with an error"));
    QBHPHelperCommunicate::share().didCheckServerOpen(open, error);
  }

  void productWillUpgrade(const qbdkr::Error* error) override {
    transcript_.write(std::string("delegate asked whether the product is ready to be upgraded") +
                      (error == nullptr ? "" : ", with an error"));
  }

 private:
  const acme::Transcript& transcript_;
};

// Puts the state of the helper agent into words; a copy is over too soon here to be shown.
struct StateText {
  std::string operator()(const qbdkr::HelperInstalling&) const { return ""; }
  std::string operator()(const qbdkr::HelperLaunching&) const { return "launching"; }
  std::string operator()(const qbdkr::HelperRunning& state) const {
    return "running version " + state.version.value_or("none") + ", process " +
           std::to_string(state.processID);
  }
  std::string operator()(const qbdkr::HelperLost&) const { return "lost"; }
  std::string operator()(const qbdkr::HelperPaused&) const { return "not started for a while"; }
  std::string operator()(const qbdkr::HelperReplaced&) const { return "replaced"; }
  std::string operator()(const qbdkr::HelperClosed&) const { return "switched off"; }
};

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

// Runs a line of standard input.
void run(const std::string& line, const acme::Transcript& transcript) {
  const auto words = wordsOf(line);
  if (words.empty()) return;
  if (words.front() == "quit") return RunLoop::main().stop();
  const auto result = photo::call(words.front(), {words.begin() + 1, words.end()});
  transcript.write(words.front() + ": " + result.value_or("no such call"));
}

// Waits until the helper agent has taken what this process posted last. It would not know the
// sender of what it reads after the end of this process.
void flush() {
  constexpr std::chrono::seconds patience(2);
  qbdkr::QBHPAppleEventSender::share().flush(std::chrono::steady_clock::now() + patience);
}

// Makes one call, and first starts the helper agent if it is not running.
int callOnce(const std::vector<std::string>& words) {
  QBHPHelper::share();
  // The start-up thread does this too; here the call waits for it.
  QBHPHelperCommunicate::share().launchHelepr();
  const std::vector<std::string> arguments(words.begin() + 1, words.end());
  const auto result = photo::call(words.front(), arguments);
  if (!result) {
    // Written in one piece: other threads write log lines.
    std::cerr << "PhotoTool: no such call, or a wrong number of arguments: " + words.front() + '\n';
    return 2;
  }
  flush();
  std::cout << words.front() + ": " + *result + '\n';
  return 0;
}

void stop(int /*signal*/) { RunLoop::main().stop(); }

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() > 1 && words.front() == "--call")
    return callOnce({words.begin() + 1, words.end()});
  if (!words.empty()) {
    std::cout << usage << photo::calls();
    return words.front() == "--help" ? 0 : 2;
  }
  // Never destroyed: the thread that reads commands and the helper's reports may outlast this
  // function.
  const std::string version =
      qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("without version");
  static const auto& transcript = *new acme::Transcript("host " + version);
  RunLoop& loop = RunLoop::main();  // before the handlers, which use it
  std::signal(SIGTERM, stop);
  std::signal(SIGINT, stop);

  static auto& reports = *new Reports(transcript);
  transcript.write("started, process " + std::to_string(getpid()));
  QBHPHelper::share();
  qbdkr::QBHPHelperControl::share().setHelperCtrlDelegate(&reports);
  QBHPHelperCommunicate::share().setProductUpgradeDelegate(&reports);
  QBHPHelperCommunicate::share().setHelperStateHandler([](const qbdkr::HelperState& state) {
    const std::string text = std::visit(StateText(), state);
    if (!text.empty()) transcript.write("the helper agent is " + text);
  });
  const std::thread reader([] {
    for (std::string command; std::getline(std::cin, command);) run(command, transcript);
  });
  loop.run();
  flush();

  transcript.write("ends");
  // The reader may wait for input for ever, so it is not joined. It was not detached either:
  // without input it ends at once, and the C library does not always survive both at a time.
  std::_Exit(0);
}
