// A helper agent that keeps the contract, but for the fault that QBDKR_FAULT names. The faults are
// listed in CheckHelperTest.cpp.

#include <signal.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/HelperLifetime.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Events/RPCTransport.h"

namespace {

namespace fs = std::filesystem;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool has(std::string_view fault) {
  static const std::string chosen = environment("QBDKR_FAULT");
  return chosen == fault;
}

void dieIf(bool isSo) {
  if (isSo) ::raise(SIGKILL);
}

fs::path fileOf(const std::string& key) { return fs::path(environment("XDG_DATA_HOME")) / key; }

std::string kept(const std::string& key) {
  std::ifstream file(fileOf(key));
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void keep(const std::string& key, const std::string& value) { std::ofstream(fileOf(key)) << value; }

std::set<std::string> hosts;
int starts = 0;
std::string collects = "1";

void report(const std::string& host, std::string_view method,
            const std::vector<std::string_view>& texts) {
  const char* className = has("report-class") ? "QBHPHelper" : "QBHPHelperControl";
  qbdkr::QBHPAppleEventSender::share().sendEvnet(host, className, method, texts);
}

void start(const std::string& host) {
  ++starts;
  dieIf(has("dies-at-second-start") && starts == 2);
  if (has("no-report") || (has("reports-once") && starts > 1)) return;
  if (has("short-report")) return report(host, "checkServerOpenCallBack::::", {"Faulty", "1"});
  report(host,
         "checkServerOpenCallBack::::", {"Faulty", has("report-flag") ? "yes" : "1", "0", ""});
}

std::string clientID() {
  static const std::string own = std::to_string(::getpid());
  static int asked = 0;
  if (has("client-id-changes")) return std::to_string(++asked);
  if (has("client-id-is-lost")) return own;
  if (kept("client").empty()) keep("client", own);
  return kept("client");
}

std::string status() {
  if (has("status-in-words")) return collects == "1" ? "yes" : "no";
  if (has("status-is-lost")) return collects;
  return kept("collects").empty() ? "1" : kept("collects");
}

std::string errorPage() {
  if (has("page-is-missing")) return "/no/such/page.html";
  if (has("page-is-relative")) return "page.html";
  return qbdkr::Bundle::main().executablePath().value_or("");
}

using Texts = std::vector<std::string>;

std::optional<std::string> control(const std::string& method, const std::string& host) {
  dieIf(has("dies-at-hide") && method.starts_with("hide"));
  if (method == "start:prodeuctVersion:") start(host);
  if (method == "exitHelper:productVersion:" && !has("ignores-exit")) {
    qbdkr::RunLoop::main().stop();
  }
  return std::nullopt;
}

std::optional<std::string> upload(const std::string& method, const Texts& texts) {
  dieIf(has("dies-at-a-directory") && texts.size() == 6 && texts[3] == "/");
  dieIf(has("dies-without-a-type") && method.starts_with("collectData") && texts[2].empty());
  if (has("counts-slowly") && method.starts_with("collectData")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  dieIf(has("dies-at-odd-texts") && !texts.empty() && texts[0].find('%') != std::string::npos);
  if (method == "setProductCollectStatus:version:status:" && texts.size() == 3) {
    if (!has("status-is-fixed")) collects = texts[2];
    if (!has("status-is-fixed")) keep("collects", texts[2]);
    return std::nullopt;
  }
  if (texts.size() > 2 && !has("answers-excess")) return std::nullopt;
  if (method == "productCollectStatus:version:") return status();
  if (method == "regSuiteInfo:version:") {
    return has("two-fields") ? "https://acme.example###300" : "https://acme.example###300###200";
  }
  if (method == "unRegSuiteInfo:version:") {
    return has("width-in-words") ? "https://acme.example###wide###200"
                                 : "https://acme.example###300###200";
  }
  if (method == "netErrorPagePath:version:") return errorPage();
  return std::nullopt;
}

bool isTooLong(const Texts& texts) {
  for (const auto& text : texts) {
    if (text.size() > 65536) return true;
  }
  return false;
}

std::optional<std::string> handle(const qbdkr::RPCEvent& event,
                                  const std::optional<std::string>& sender) {
  const std::string className = event.className.value_or("");
  const std::string method = event.methodName.value_or("");
  const Texts& texts = event.arguments;
  if (sender) hosts.insert(*sender);
  if (!sender && !has("answers-strangers")) return std::nullopt;
  dieIf(has("dies-of-many-arguments") && texts.size() > 1000);
  if (has("hangs-at-long-texts") && isTooLong(texts)) ::pause();
  if (className == "QBHPHelperControl" && method.find("noSuch") == std::string::npos) {
    return control(method, sender.value_or(""));
  }
  if (has("waits-for-a-start") && starts == 0) return std::nullopt;
  if (className == "QBHPUploadByHelper" && method.find("noSuch") == std::string::npos) {
    return upload(method, texts);
  }
  if (className == "QBHPGetDataByHelper" && texts.empty()) {
    return method == "clientIDFormHelper" ? clientID() : "0";
  }
  dieIf(has("dies-at-ignore") && !texts.empty() && texts.back() == "ignore");
  dieIf(has("dies-at-customers") && method.starts_with("customerService:"));
  if (has("answers-unknown-classes") && className == "NoSuchClass") return "?";
  if (has("answers-unknown-methods") && method == "noSuchMethod:") return "?";
  return std::nullopt;
}

bool isTerminated = false;

void terminate(int /*signal*/) {
  isTerminated = true;
  qbdkr::RunLoop::main().stop();
}

}  // namespace

int main() {
  if (has("ends-at-once")) return 1;
  if (has("ends-with-a-long-line")) {
    std::cout << "Begin " << std::string(65536, 'x') << std::flush;
    return 1;
  }
  if (has("locks-a-folder")) {
    fs::create_directories(fileOf("folder/inside"));
    fs::permissions(fileOf("folder"), fs::perms::none);
  }
  if (has("claims-no-name")) ::pause();
  qbdkr::RunLoop& loop = qbdkr::RunLoop::main();
  if (!has("dies-of-sigterm")) ::signal(SIGTERM, has("ignores-sigterm") ? SIG_IGN : terminate);
  if (has("ends-with-its-host")) qbdkr::endWhenIdle(std::chrono::milliseconds(50));
  qbdkr::RPCTransport::shared().setHandler(handle);
  loop.run();
  if (has("no-exit-report") || (has("no-report-of-sigterm") && isTerminated)) return 0;
  for (const auto& host : hosts) report(host, "helperExitNotify:", {"Faulty"});
  qbdkr::QBHPAppleEventSender::share().flush(std::chrono::steady_clock::now() +
                                             std::chrono::seconds(2));
}
