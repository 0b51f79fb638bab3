// A helper agent: a host application installs and starts it, and it serves the requests of hosts.

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <ClientComm/Bundle.h>
#include <ClientComm/HelperLifetime.h>
#include <ClientComm/Log.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/RunLoop.h>

#include "AppKit.h"
#include "CustomerService.h"
#include "Database.h"
#include "GetData.h"
#include "HelperControl.h"
#include "UpgradeService.h"
#include "UploadService.h"

namespace {

void stop(int /*signal*/) { qbdkr::RunLoop::main().stop(); }

// Returns the folder for this application's data, in XDG_DATA_HOME if that is set, else in the
// usual place for this platform, which the information property list names.
std::string dataDirectory() {
  const qbdkr::Bundle& bundle = qbdkr::Bundle::main();
  const char* configured = std::getenv("XDG_DATA_HOME");
  const char* home = std::getenv("HOME");
  const bool usable = configured != nullptr && *configured == '/';
  const std::filesystem::path directory =
      usable ? configured
             : std::filesystem::path(home != nullptr ? home : "/") /
                   bundle.infoString("Data location path").value_or("");
  return directory / bundle.infoString(qbdkr::kCFBundleIdentifierKey).value_or("AcmeHelper");
}

// Without hosts it ends; the next host starts it again. Nor does it outlive its bus by more than a
// restart takes.
constexpr std::chrono::minutes longestIdle(10);
constexpr std::chrono::seconds longestWithoutBus(10);
constexpr std::chrono::seconds longestExit(2);  // for each of its two waits

[[noreturn]] void serve(const acme::Transcript& transcript) {
  acme::State state(dataDirectory());
  acme::Uploads uploads(state, transcript);
  acme::HelperControl control(state, transcript);
  acme::GetData data(state, transcript);
  acme::UploadService upload(state, uploads, transcript);
  acme::UpgradeService upgrade(state, transcript);
  acme::CustomerService customer(state, uploads, transcript);

  using Clock = std::chrono::steady_clock;
  qbdkr::endWhenIdle(longestIdle);
  qbdkr::endWithBus(longestWithoutBus);
  transcript.write("started, process " + std::to_string(getpid()));
  qbdkr::RunLoop::main().run();
  qbdkr::serveWhatHasCome(Clock::now() + longestExit);
  const bool isStored = state.commit();
  control.reportExit();
  // A host hears a report only if it learns who sent it, while this process is there.
  qbdkr::QBHPAppleEventSender::share().flush(Clock::now() + longestExit);
  transcript.write("exits");
  // Does not wait for the thread that reads files, which one of them may hold up.
  std::_Exit(isStored ? 0 : 1);
}

}  // namespace

int main() {
  const std::string version =
      qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("without version");
  const acme::Transcript transcript("helper " + version);
  umask(S_IRWXG | S_IRWXO);  // its files are for the user alone
  acme::joinAppKit();
  qbdkr::RunLoop::main();  // before the handlers, which use it
  std::signal(SIGTERM, stop);
  std::signal(SIGINT, stop);
  try {
    serve(transcript);
  } catch (const acme::DatabaseError& error) {
    qbdkr::log("the state cannot be opened: %@", {error.what()});
    return 1;
  }
}
