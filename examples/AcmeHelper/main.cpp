// A helper agent: a host application installs and starts it, and it serves the requests of hosts.

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <ClientComm/Bundle.h>
#include <ClientComm/Log.h>
#include <ClientComm/RunLoop.h>

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

// Serves the requests that hosts have posted so far: until none comes for 0.1 s, but not for ever.
void serveWhatHasArrived() {
  constexpr int quiet = 100;  // milliseconds
  qbdkr::RunLoop& loop = qbdkr::RunLoop::main();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  pollfd readable{loop.descriptor(), POLLIN, 0};
  while (std::chrono::steady_clock::now() < end && ::poll(&readable, 1, quiet) > 0) loop.dispatch();
}

[[noreturn]] void serve(const acme::Transcript& transcript) {
  acme::State state(dataDirectory());
  acme::Uploads uploads(state, transcript);
  acme::HelperControl control(state, transcript);
  acme::GetData data(state, transcript);
  acme::UploadService upload(state, uploads, transcript);
  acme::UpgradeService upgrade(state, transcript);
  acme::CustomerService customer(state, uploads, transcript);

  transcript.write("started, process " + std::to_string(getpid()));
  qbdkr::RunLoop::main().run();
  serveWhatHasArrived();
  const bool isStored = state.commit();
  control.reportExit();
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
  qbdkr::RunLoop::main();    // before the handlers, which use it
  std::signal(SIGTERM, stop);
  std::signal(SIGINT, stop);
  try {
    serve(transcript);
  } catch (const acme::DatabaseError& error) {
    qbdkr::log("the state cannot be opened: %@", {error.what()});
    return 1;
  }
}
