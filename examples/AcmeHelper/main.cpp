// A helper agent: it is installed and started by a host application, and does what hosts ask it
// for.

#include <unistd.h>

#include <csignal>
#include <string>

#include "GetData.h"
#include "HelperControl.h"
#include "Platform/Bundle.h"
#include "Platform/RunLoop.h"

namespace {

void stop(int /*signal*/) { qbdkr::RunLoop::main().stop(); }

}  // namespace

int main() {
  const std::string version =
      qbdkr::Bundle::main().infoString(qbdkr::kCFBundleVersionKey).value_or("without version");
  const acme::Transcript transcript("helper " + version);
  qbdkr::RunLoop& loop = qbdkr::RunLoop::main();
  std::signal(SIGTERM, stop);
  std::signal(SIGINT, stop);

  acme::HelperControl control(transcript);
  acme::GetData data(transcript);
  transcript.write("started, process " + std::to_string(getpid()));
  loop.run();

  control.reportExit();
  transcript.write("exits");
  return 0;
}
