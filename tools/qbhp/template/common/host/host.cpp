// The host: an application that carries a helper agent.

#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <thread>

#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/RunLoop.h>
#include <QBDKRProductClient/QBHPHelper.h>

namespace {

void stop(int /*signal*/) { qbdkr::RunLoop::main().stop(); }

// Asks the helper agent, and waits for its answers.
void greet() {
  auto& helper = qbdkr::QBHPHelperCommunicate::share();
  helper.extractHelper();  // first, or an older one might be asked that is just being replaced
  helper.launchHelepr();
  const auto identifier = helper.clientIDFormHelper();
  if (!identifier) {
    std::cout << "The helper agent does not answer.\n" << helper.diagnose().text() << std::endl;
    return;
  }
  const std::string none = "(no answer)";
  std::cout << "The helper agent runs.\n"
            << "Identifier of this installation: " << *identifier << '\n'
            << "Page without a network: " << helper.netErrorPagePath().value_or(none) << '\n'
            << "Usage data: " << (helper.productCollectStatus() ? "collected" : "not collected")
            << std::endl;
}

}  // namespace

int main() {
  qbdkr::RunLoop& loop = qbdkr::RunLoop::main();
  std::signal(SIGTERM, stop);
  std::signal(SIGINT, stop);
  // From here on the helper agent is installed, launched and kept alive, in the background.
  qbdkr::QBHPHelper::share();
  std::thread(greet).detach();
  loop.run();  // the helper agent's reports
  // The helper agent does not hear a process that has ended: waits until it has taken the last
  // posts.
  qbdkr::QBHPAppleEventSender::share().flush(std::chrono::steady_clock::now() +
                                             std::chrono::seconds(2));
}
