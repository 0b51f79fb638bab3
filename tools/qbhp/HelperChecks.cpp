#include "tools/qbhp/HelperChecks.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>

#include <ClientComm/Bundle.h>
#include <ClientComm/QBHPCustomerServiceByHelepr.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPHelperControl.h>
#include <ClientComm/QBHPUpgradeByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "Platform/Events/PeerLookup.h"

namespace qbdkr::tool {
namespace {

namespace fs = std::filesystem;
using Kind = TrialAnswer::Kind;
using Result = Verdict::Result;
using Texts = std::vector<std::string>;

constexpr std::size_t megabyte = 1'048'576;
constexpr std::size_t manyArguments = 100'000;
constexpr std::size_t burst = 2'000;
constexpr std::size_t longestShown = 60;
constexpr std::chrono::seconds longestSettling(2);
constexpr std::chrono::milliseconds glance(10);
constexpr std::chrono::milliseconds absence(300);  // of a host that is started again

const std::string product = "1001";
const std::string version = "1.0";
const Texts productAndVersion{product, version};

Verdict ok(std::string seen) { return {Result::ok, std::move(seen)}; }
Verdict failed(std::string seen) { return {Result::failed, std::move(seen)}; }
Verdict skipped(std::string seen) { return {Result::skipped, std::move(seen)}; }

std::string quotedText(const std::string& text) {
  const bool isLong = text.size() > longestShown;
  return '"' + std::string(beginningOf(text, longestShown)) + (isLong ? "..." : "") + '"';
}

// Says an answer that is no text.
std::string told(const TrialAnswer& answer) {
  switch (answer.kind) {
    case Kind::error:
      if (answer.text == "org.freedesktop.DBus.Error.NoReply") return "ended without an answer";
      return "answered with the error " + answer.text;
    case Kind::late:
      return "not answered in time";
    case Kind::noText:
      return "answered without a text";
    case Kind::text:
      break;
  }
  return "answered " + quotedText(answer.text);
}

TrialEvent eventOf(std::string_view className, Selector method, Texts texts = productAndVersion) {
  return {std::string(className), std::string(method.text()), std::move(texts)};
}

const TrialEvent startRequest = eventOf(QBHPHelperControl::kClassName, QBHPHelperControl::kStart);
const TrialEvent clientRequest =
    eventOf(QBHPGetDataByHelper::kClassName, QBHPGetDataByHelper::kClientIDFormHelper, {});
const TrialEvent statusRequest =
    eventOf(QBHPUploadByHelper::kClassName, QBHPUploadByHelper::kProductCollectStatus);
const TrialEvent suiteRequest =
    eventOf(QBHPUploadByHelper::kClassName, QBHPUploadByHelper::kUnRegSuiteInfo);
const TrialEvent aliveRequest = eventOf(QBHPHelperControl::kClassName, QBHPHelperControl::kIsAlive);
const TrialEvent exitRequest =
    eventOf(QBHPHelperControl::kClassName, QBHPHelperControl::kExitHelper);

std::string openReport() { return std::string(QBHPHelperControl::kCheckServerOpenCallBack.text()); }
std::string exitReport() { return std::string(QBHPHelperControl::kHelperExitNotify.text()); }

bool isNothing(const TrialAnswer& answer) {
  return answer.kind == Kind::noText || (answer.kind == Kind::text && answer.text.empty());
}

// Returns the verdict on an answer without a text; absent for one with a text.
std::optional<Verdict> verdictWithoutText(const TrialAnswer& answer) {
  if (isNothing(answer)) return skipped("answered with nothing: left out");
  if (answer.kind != Kind::text) return failed(told(answer));
  return std::nullopt;
}

// An unknown request is no error.
Verdict answersNothing(CheckScene& scene, const TrialEvent& event) {
  const auto answer = scene.trial.ask(event);
  if (isNothing(answer)) return ok("answered with nothing");
  return failed(told(answer) + "; the empty text is due");
}

// Waits until requests are served: one that comes too early is a fault of the check "name" alone.
void settle(CheckScene& scene) {
  const auto deadline = std::chrono::steady_clock::now() + longestSettling;
  while (!scene.answersErrors && scene.trial.ask(aliveRequest).kind == Kind::error) {
    if (!scene.trial.isRunning()) return;
    std::this_thread::sleep_for(glance);
    scene.answersErrors = std::chrono::steady_clock::now() > deadline;
  }
}

std::optional<std::string> launched(CheckScene& scene) {
  auto fault = scene.trial.launch();
  if (!fault) settle(scene);
  return fault;
}

Verdict bundleIsComplete(CheckScene& scene) {
  const auto bundle = Bundle::withPath(fs::absolute(scene.bundlePath).string());
  if (!bundle) {
    std::error_code error;
    return failed(fs::exists(scene.bundlePath, error) ? "it is no directory" : "it does not exist");
  }
  const std::string identifier = bundle->infoString(kCFBundleIdentifierKey).value_or("");
  if (identifier.empty()) return failed("Info.plist has no CFBundleIdentifier");
  const bool hasName = isReachableIdentifier(identifier) &&
                       std::ranges::all_of(identifier, [](unsigned char c) { return c < 0x80; });
  if (!hasName) return failed(quotedText(identifier) + " has no bus name that is safe to use");
  if (!bundle->executablePath()) return failed("CFBundleExecutable names no program in it");
  if (bundle->infoString(kCFBundleVersionKey).value_or("").empty()) {
    return failed("Info.plist has no CFBundleVersion");
  }
  return ok(identifier);
}

// The first request follows the name at once: the name says that requests can be served.
Verdict claimsItsName(CheckScene& scene) {
  if (auto fault = scene.trial.launch()) return failed(*fault);
  const auto answer = scene.trial.ask(aliveRequest);
  if (answer.kind == Kind::error || answer.kind == Kind::late) {
    return failed("has its name, but the first request is " + told(answer));
  }
  return ok("claimed in time");
}

Verdict runsFromItsBundle(CheckScene& scene) {
  const auto bundle = Bundle::withPath(fs::absolute(scene.bundlePath).string());
  const std::string due = bundle ? bundle->infoString(kCFBundleIdentifierKey).value_or("") : "";
  const std::string found = scene.trial.identifierOfOwner();
  if (found.empty()) return failed("its process belongs to no bundle: hosts drop its reports");
  if (found != due) return failed("its process belongs to " + quotedText(found));
  return ok(found);
}

Verdict keepsItsName(CheckScene& scene) {
  return scene.trial.canBeReplaced() ? failed("another process could take its name away")
                                     : ok("not given away");
}

// Returns the fault of a report, if it has one.
std::optional<Verdict> faultOf(const TrialReport& report, std::size_t parts) {
  if (!report.isToTheHost) {
    return failed("the report went to the sending connection, not to the host's name");
  }
  if (report.sender.empty()) {
    return failed("the report came from a process of no bundle, or one that has ended");
  }
  if (report.event.className != QBHPHelperControl::kClassName) {
    return failed("the report names the class " + quotedText(report.event.className));
  }
  if (report.event.arguments.size() != parts) {
    return failed("the report has " + std::to_string(report.event.arguments.size()) +
                  " arguments; " + std::to_string(parts) + " are due");
  }
  return std::nullopt;
}

Verdict startIsReported(CheckScene& scene) {
  scene.trial.forgetReports();
  scene.trial.post(startRequest);
  const auto reports = scene.trial.awaitReports(openReport(), 1);
  if (reports.empty()) return failed("no report of " + openReport() + " in time");
  const TrialReport& report = reports.front();
  if (auto fault = faultOf(report, 4)) return *fault;
  const std::string& flag = report.event.arguments[1];
  if (flag != "1" && flag != "0")
    return failed("the flag is " + quotedText(flag) + "; 1 or 0 is due");
  return ok(flag == "1" ? "reported: open" : "reported: not open");
}

Verdict startIsRepeatable(CheckScene& scene) {
  scene.trial.forgetReports();
  for (int i = 0; i < 3; ++i) scene.trial.post(startRequest);
  const auto reports = scene.trial.awaitReports(openReport(), 3);
  if (reports.empty()) return failed("three start requests, and no report");
  return ok(std::to_string(reports.size()) + " reports of 3 start requests");
}

// Reports are not taken before the answer came.
Verdict waitsForNoHost(CheckScene& scene) {
  scene.trial.post(startRequest);
  const auto answer = scene.trial.ask(aliveRequest);
  if (answer.kind == Kind::late) return failed("waits for the host while a request is served");
  if (answer.kind == Kind::error) return failed(told(answer));
  return ok("answers while a report is not taken");
}

Verdict clientIsIdentified(CheckScene& scene) {
  const auto first = scene.trial.ask(clientRequest);
  if (auto verdict = verdictWithoutText(first)) return *verdict;
  const auto second = scene.trial.ask(clientRequest);
  if (second.kind != Kind::text || second.text != first.text) {
    return failed("first " + quotedText(first.text) + ", then " + told(second));
  }
  return ok(quotedText(first.text) + ", twice");
}

Verdict firstStartIsTold(CheckScene& scene) {
  const auto answer = scene.trial.ask(
      eventOf(QBHPGetDataByHelper::kClassName, QBHPGetDataByHelper::kIsNotFirstStart, {}));
  if (auto verdict = verdictWithoutText(answer)) return *verdict;
  return ok(told(answer));
}

Verdict collectStatusIsAFlag(CheckScene& scene) {
  const auto answer = scene.trial.ask(statusRequest);
  if (auto verdict = verdictWithoutText(answer)) return *verdict;
  if (answer.text == "1" || answer.text == "0") return ok(told(answer));
  return failed(told(answer) + "; 1 or 0 is due");
}

void setCollects(CheckScene& scene, const std::string& flag) {
  scene.trial.post(eventOf(QBHPUploadByHelper::kClassName,
                           QBHPUploadByHelper::kSetProductCollectStatus, {product, version, flag}));
}

Verdict collectStatusIsSet(CheckScene& scene) {
  const auto before = scene.trial.ask(statusRequest);
  if (auto verdict = verdictWithoutText(before)) return *verdict;
  for (const std::string flag : {"0", "1", "0"}) {
    setCollects(scene, flag);
    const auto answer = scene.trial.ask(statusRequest);
    if (answer.kind != Kind::text || answer.text != flag) {
      return failed("set to " + flag + ", then " + told(answer));
    }
  }
  return ok("set and told, 3 times");
}

// Returns the fields of a text; they are joined by "###".
Texts fieldsOf(const std::string& text) {
  constexpr std::string_view joint = "###";
  Texts fields;
  std::size_t from = 0;
  for (auto at = text.find(joint); at != std::string::npos; at = text.find(joint, from)) {
    fields.push_back(text.substr(from, at - from));
    from = at + joint.size();
  }
  fields.push_back(text.substr(from));
  return fields;
}

bool isSize(const std::string& text) {
  const auto after = [](std::string_view rest, std::string_view characters) {
    return rest.substr(std::min(rest.find_first_not_of(characters), rest.size()));
  };
  std::string_view digits = after(text, " \t");
  if (digits.starts_with('+')) digits.remove_prefix(1);
  digits = after(digits, "0");
  return !digits.empty() && digits.size() <= 9 &&
         digits.find_first_not_of("0123456789") == std::string_view::npos;
}

Verdict suitePage(CheckScene& scene, Selector method) {
  const auto answer = scene.trial.ask(eventOf(QBHPUploadByHelper::kClassName, method));
  if (auto verdict = verdictWithoutText(answer)) return *verdict;
  const Texts fields = fieldsOf(answer.text);
  if (fields.size() < 3) {
    return failed(told(answer) + ": " + std::to_string(fields.size()) +
                  " of 3 fields, an exception in the host");
  }
  if (fields[0].empty()) return failed(told(answer) + ": the URL is empty");
  if (!isSize(fields[1]) || !isSize(fields[2])) {
    return failed(told(answer) + ": width or height is no number of pixels");
  }
  return ok(told(answer));
}

Verdict suitePageIfRegistered(CheckScene& scene) {
  return suitePage(scene, QBHPUploadByHelper::kRegSuiteInfo);
}
Verdict suitePageIfNot(CheckScene& scene) {
  return suitePage(scene, QBHPUploadByHelper::kUnRegSuiteInfo);
}

Verdict errorPageExists(CheckScene& scene) {
  const auto answer = scene.trial.ask(
      eventOf(QBHPUploadByHelper::kClassName, QBHPUploadByHelper::kNetErrorPagePath));
  if (auto verdict = verdictWithoutText(answer)) return *verdict;
  std::error_code error;
  if (!fs::path(answer.text).is_absolute()) return failed(told(answer) + ": no absolute path");
  if (!fs::is_regular_file(answer.text, error)) return failed(told(answer) + ": no such file");
  return ok("an existing file, " + fs::path(answer.text).filename().string());
}

// Posts requests, and names the one that it does not survive.
Verdict survives(CheckScene& scene, const std::vector<TrialEvent>& events) {
  for (const TrialEvent& event : events) {
    scene.trial.post(event);
    const auto answer = scene.trial.ask(aliveRequest);
    if (answer.kind == Kind::late) return failed("hangs after " + event.method);
    if (!scene.trial.isRunning()) return failed(scene.trial.ending() + " after " + event.method);
  }
  return ok(std::to_string(events.size()) + " requests survived");
}

Verdict controlIsSurvived(CheckScene& scene) {
  using Control = QBHPHelperControl;
  return survives(
      scene,
      {eventOf(Control::kClassName, Control::kShow), eventOf(Control::kClassName, Control::kHide),
       eventOf(Control::kClassName, Control::kIsAlive),
       eventOf(Control::kClassName, Control::kStop), eventOf(Control::kClassName, Control::kStop)});
}

// Paths may be no files.
Verdict uploadsAreSurvived(CheckScene& scene) {
  using Upload = QBHPUploadByHelper;
  std::vector<TrialEvent> events;
  for (const Selector method :
       {Upload::kUploadLog, Upload::kUploadUserFile, Upload::kUploadProductFile}) {
    for (const std::string path : {"/no/such/file", "/", "", "no\nfile"}) {
      events.push_back(eventOf(Upload::kClassName, method,
                               {product, version, "a@acme.example", path, "title", "text"}));
    }
  }
  return survives(scene, events);
}

Verdict usageDataAreSurvived(CheckScene& scene) {
  using Upload = QBHPUploadByHelper;
  std::vector<TrialEvent> events;
  for (const Texts& item : {Texts{"3", "target", "key", ""}, Texts{"4", "target", "key", ""},
                            Texts{"5", "target", "", "value"}, Texts{"", "target", "key", ""},
                            Texts{"3", "", "", ""}}) {
    events.push_back(eventOf(Upload::kClassName, Upload::kCollectData,
                             {product, version, item[0], item[1], item[2], item[3]}));
  }
  events.push_back(eventOf(Upload::kClassName, Upload::kDirectUploadData));
  return survives(scene, events);
}

Verdict upgradesAreSurvived(CheckScene& scene) {
  using Upgrade = QBHPUpgradeByHelper;
  return survives(
      scene,
      {eventOf(Upgrade::kClassName, Upgrade::kProductUpgrade),
       eventOf(Upgrade::kClassName, Upgrade::kProductReadyToUpgrade, {product, version, "1"}),
       eventOf(Upgrade::kClassName, Upgrade::kProductReadyToUpgrade, {product, version, "0"}),
       eventOf(Upgrade::kClassName, Upgrade::kProductReadyToUpgrade, {"", "", "ignore"})});
}

Verdict customersAreSurvived(CheckScene& scene) {
  using Customer = QBHPCustomerServiceByHelepr;
  return survives(scene, {eventOf(Customer::kClassName, Customer::kCustomerService,
                                  {product, version, "a@acme.example", "/no/such/file"}),
                          eventOf(Customer::kClassName, Customer::kCheckForHeleprMessage)});
}

Verdict unknownClassIsNoError(CheckScene& scene) {
  return answersNothing(scene, {"NoSuchClass", startRequest.method, productAndVersion});
}
Verdict unknownMethodIsNoError(CheckScene& scene) {
  for (const std::string_view className :
       {QBHPHelperControl::kClassName, QBHPUploadByHelper::kClassName,
        QBHPGetDataByHelper::kClassName, QBHPUpgradeByHelper::kClassName,
        QBHPCustomerServiceByHelepr::kClassName}) {
    auto verdict = answersNothing(scene, {std::string(className), "noSuchMethod:", {product}});
    if (verdict.result != Result::ok) return verdict;
  }
  return ok("answered with nothing, in 5 classes");
}
Verdict excessIsNoError(CheckScene& scene) {
  for (TrialEvent event : {suiteRequest, clientRequest, statusRequest}) {
    event.arguments.insert(event.arguments.end(), {"one", "more"});
    auto verdict = answersNothing(scene, event);
    if (verdict.result != Result::ok) return verdict;
  }
  return ok("answered with nothing");
}
Verdict lackIsSurvived(CheckScene& scene) {
  for (TrialEvent event : {suiteRequest, statusRequest, startRequest}) {
    event.arguments.clear();
    const auto answer = scene.trial.ask(event);
    if (answer.kind == Kind::late || answer.kind == Kind::error) return failed(told(answer));
  }
  return ok("answered");
}
Verdict wrongSignatureIsAnswered(CheckScene& scene) {
  const auto answer = scene.trial.askMalformed();
  return answer.kind == Kind::error ? ok(told(answer)) : failed(told(answer) + "; an error is due");
}

Verdict manyArgumentsAreAnswered(CheckScene& scene) {
  TrialEvent event = suiteRequest;
  event.arguments.assign(manyArguments, "argument");
  return answersNothing(scene, event);
}

Verdict longTextsAreAnswered(CheckScene& scene) {
  const std::string text(megabyte, 'x');
  const auto upload =
      scene.trial.ask(eventOf(QBHPUploadByHelper::kClassName, QBHPUploadByHelper::kUploadLog,
                              {product, version, "a@acme.example", "/no/such/file", text, text}));
  if (upload.kind == Kind::late || upload.kind == Kind::error) return failed(told(upload));
  return answersNothing(scene, {text, text, {text}});
}

Verdict oddTextsAreAnswered(CheckScene& scene) {
  for (const std::string text :
       {"", "###", "\n\t\x1b[31m", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "%s%n%@", "../../x"}) {
    TrialEvent event = suiteRequest;
    event.arguments = {text, text};
    const auto answer = scene.trial.ask(event);
    if (answer.kind == Kind::late || answer.kind == Kind::error) return failed(told(answer));
  }
  return ok("6 odd texts answered");
}

Verdict burstIsAnswered(CheckScene& scene) {
  const auto event = eventOf(QBHPUploadByHelper::kClassName, QBHPUploadByHelper::kCollectData,
                             {product, version, "4", "target", "key", ""});
  for (std::size_t i = 0; i < burst; ++i) scene.trial.post(event);
  const auto answer = scene.trial.ask(aliveRequest);
  if (answer.kind == Kind::late || answer.kind == Kind::error) return failed(told(answer));
  return ok(std::to_string(burst) + " counts at once");
}

Verdict strangerGetsNothing(CheckScene& scene) {
  // One of the requests that has an answer for a host.
  for (const TrialEvent& event : {clientRequest, suiteRequest, statusRequest}) {
    const auto inside = scene.trial.ask(event);
    if (inside.kind != Kind::text || inside.text.empty()) continue;
    const auto outside = scene.trial.askFromOutside(event);
    if (isNothing(outside)) return ok("answered with nothing");
    return failed(told(outside) + "; the empty text is due");
  }
  return skipped("no request has an answer to keep back");
}

// Joins the types of the arguments in a description of a method.
std::string typesIn(std::string_view description) {
  constexpr std::string_view mark = "type=";
  constexpr std::string_view quotes = "\"'";
  std::string types;
  for (auto at = description.find(mark); at != std::string_view::npos;
       at = description.find(mark, at)) {
    at += mark.size();
    if (at == description.size() || quotes.find(description[at]) == std::string_view::npos)
      continue;
    const auto end = description.find_first_of(quotes, ++at);
    if (end != std::string_view::npos) types += description.substr(at, end - at);
  }
  return types;
}

Verdict objectIsDescribed(CheckScene& scene) {
  const auto answer = scene.trial.introspect();
  if (answer.kind == Kind::error) return skipped("not described: left out");
  if (answer.kind != Kind::text) return failed(told(answer));
  const auto interface = answer.text.find("\"QBHP.RPCEvent1\"");
  if (interface == std::string::npos) return failed("the description lacks QBHP.RPCEvent1");
  const std::string rest =
      answer.text.substr(interface, answer.text.find("</interface>", interface) - interface);
  const auto method = rest.find("\"Call\"");
  if (method == std::string::npos) return failed("the description lacks the method Call");
  const std::string types = typesIn(rest.substr(method, rest.find("</method>", method) - method));
  return types == "ssass"
             ? ok("Call has ssas in, s out")
             : failed("the types of Call are " + quotedText(types) + ", not \"ssass\"");
}

Verdict flushIsAnswered(CheckScene& scene) {
  const auto answer = scene.trial.flush();
  if (answer.kind == Kind::late) return failed(told(answer));
  if (answer.kind == Kind::error) return skipped("not offered: left out");
  return ok("answered");
}

Verdict outlivesItsHost(CheckScene& scene) {
  scene.trial.leave();
  std::this_thread::sleep_for(absence);
  scene.trial.restartHost();
  const auto answer = scene.trial.ask(aliveRequest);
  if (!scene.trial.isRunning()) return failed(scene.trial.ending() + " with its host");
  if (answer.kind == Kind::late || answer.kind == Kind::error) return failed(told(answer));
  return ok("serves the next host");
}

// Kills the process, and launches the next one. Returns the fault.
std::optional<Verdict> killAndLaunch(CheckScene& scene) {
  scene.trial.signal(SIGKILL);
  if (auto fault = launched(scene)) return failed("after a kill " + *fault);
  return std::nullopt;
}

// No start request comes to the second process.
Verdict servesWithoutStart(CheckScene& scene) {
  if (auto fault = launched(scene)) return failed(*fault);
  scene.trial.post(startRequest);
  for (const TrialEvent& event : {suiteRequest, clientRequest, statusRequest}) {
    const auto before = scene.trial.ask(event);
    if (before.kind == Kind::late) return skipped("it does not answer after a start request");
    if (before.kind != Kind::text || before.text.empty()) continue;
    if (auto fault = killAndLaunch(scene)) return *fault;
    const auto after = scene.trial.ask(event);
    if (after.kind == Kind::text && !after.text.empty()) return ok("answers without it");
    return failed(told(after) + " without a start request");
  }
  return skipped("no request has an answer to compare");
}

Verdict clientIsKept(CheckScene& scene) {
  if (auto fault = launched(scene)) return failed(*fault);
  const auto before = scene.trial.ask(clientRequest);
  if (auto verdict = verdictWithoutText(before)) return *verdict;
  if (auto fault = killAndLaunch(scene)) return *fault;
  const auto after = scene.trial.ask(clientRequest);
  if (after.kind == Kind::text && after.text == before.text) return ok("kept over a kill");
  return failed("before a kill " + quotedText(before.text) + ", afterwards " + told(after));
}

// A request that asks was answered: all that came before is kept.
Verdict collectStatusIsKept(CheckScene& scene) {
  if (auto fault = launched(scene)) return failed(*fault);
  for (const std::string flag : {"1", "0"}) {
    setCollects(scene, flag);
    const auto before = scene.trial.ask(statusRequest);
    if (auto verdict = verdictWithoutText(before)) return *verdict;
    if (before.text != flag) return skipped("it cannot be set");
    if (auto fault = killAndLaunch(scene)) return *fault;
    const auto after = scene.trial.ask(statusRequest);
    if (after.kind != Kind::text || after.text != flag) {
      return failed("set to " + flag + ", after a kill " + told(after));
    }
  }
  return ok("kept over two kills");
}

// Launches it, and has it end.
struct Ending {
  std::optional<Verdict> fault;
  std::vector<TrialReport> reports;
};

Ending endingAfter(CheckScene& scene, const std::function<void()>& end) {
  if (auto fault = launched(scene)) return {failed(*fault), {}};
  scene.trial.post(startRequest);
  const auto answer = scene.trial.ask(aliveRequest);  // the start request was served
  if (answer.kind == Kind::late) return {failed(told(answer)), {}};
  scene.trial.forgetReports();
  end();
  if (!scene.trial.hasEnded()) return {failed("still there after the longest time"), {}};
  return {std::nullopt, scene.trial.awaitReports(exitReport(), 0)};
}

Ending endingByRequest(CheckScene& scene) {
  return endingAfter(scene, [&scene] { scene.trial.post(exitRequest); });
}
Ending endingBySignal(CheckScene& scene) {
  return endingAfter(scene, [&scene] { scene.trial.signal(SIGTERM); });
}

Verdict obeyed(CheckScene& scene, const Ending& ending) {
  if (ending.fault) return *ending.fault;
  return ok(scene.trial.ending());
}

Verdict reported(const Ending& ending) {
  if (ending.fault) return skipped("it did not end");
  if (ending.reports.empty()) return failed("ended without a report of " + exitReport());
  const TrialReport& report = ending.reports.front();
  if (auto fault = faultOf(report, 1)) return *fault;
  return ok("reported before the end");
}

Verdict exitIsObeyed(CheckScene& scene) { return obeyed(scene, endingByRequest(scene)); }
Verdict exitIsReported(CheckScene& scene) { return reported(endingByRequest(scene)); }
Verdict signalIsObeyed(CheckScene& scene) { return obeyed(scene, endingBySignal(scene)); }
Verdict signalIsReported(CheckScene& scene) { return reported(endingBySignal(scene)); }

constexpr std::array checks{
    HelperCheck{"bundle", "Info.plist has the keys that a host needs", bundleIsComplete, true},
    HelperCheck{"name", "the name is claimed in time, and requests are served then", claimsItsName,
                true},
    HelperCheck{"identity", "it runs from its bundle", runsFromItsBundle},
    HelperCheck{"keeps-name", "no other process may take its name away", keepsItsName},
    HelperCheck{"start", "the start request is answered by a report to the host", startIsReported},
    HelperCheck{"start-again", "the same start request may come three times", startIsRepeatable},
    HelperCheck{"no-waiting", "it waits for no host while it serves a request", waitsForNoHost},
    HelperCheck{"client-id", "an identifier of the installation, the same twice",
                clientIsIdentified},
    HelperCheck{"first-start", "an answer whether this is the first start", firstStartIsTold},
    HelperCheck{"collect-status", "usage data are collected: 1 or 0", collectStatusIsAFlag},
    HelperCheck{"set-collect-status", "the next request gets the flag that was set",
                collectStatusIsSet},
    HelperCheck{"reg-suite", "URL, width and height, joined by ###", suitePageIfRegistered},
    HelperCheck{"unreg-suite", "the same for a suite that is not registered", suitePageIfNot},
    HelperCheck{"error-page", "the path of a page that exists", errorPageExists},
    HelperCheck{"control", "it survives the requests of QBHPHelperControl", controlIsSurvived},
    HelperCheck{"uploads", "it survives uploads, of paths that are no files too",
                uploadsAreSurvived},
    HelperCheck{"usage-data", "it survives usage data of all types", usageDataAreSurvived},
    HelperCheck{"upgrades", "it survives the requests of QBHPUpgradeByHelper", upgradesAreSurvived},
    HelperCheck{"customers", "it survives the requests of QBHPCustomerServiceByHelepr",
                customersAreSurvived},
    HelperCheck{"unknown-class", "an unknown class gets the empty text", unknownClassIsNoError},
    HelperCheck{"unknown-method", "an unknown method gets the empty text", unknownMethodIsNoError},
    HelperCheck{"more-arguments", "more arguments than are due get the empty text",
                excessIsNoError},
    HelperCheck{"fewer-arguments", "fewer arguments than are due get an answer", lackIsSurvived},
    HelperCheck{"wrong-signature", "a call of another signature gets an error",
                wrongSignatureIsAnswered},
    HelperCheck{"many-arguments", "100,000 arguments get the empty text", manyArgumentsAreAnswered},
    HelperCheck{"long-texts", "texts of a megabyte get an answer", longTextsAreAnswered},
    HelperCheck{"odd-texts", "texts of other characters get an answer", oddTextsAreAnswered},
    HelperCheck{"burst", "2,000 requests at once get served", burstIsAnswered},
    HelperCheck{"stranger", "a sender outside of a bundle gets nothing", strangerGetsNothing},
    HelperCheck{"description", "the object describes its interface", objectIsDescribed},
    HelperCheck{"flush", "the question whether events were taken is answered", flushIsAnswered},
    HelperCheck{"outlives-host", "it stays when its host has gone", outlivesItsHost},
    HelperCheck{"without-start", "it answers without a start request", servesWithoutStart, true},
    HelperCheck{"keeps-client-id", "the identifier survives a kill", clientIsKept, true},
    HelperCheck{"keeps-collect-status", "a flag that was told survives a kill", collectStatusIsKept,
                true},
    HelperCheck{"exit", "the exit request is obeyed in time", exitIsObeyed, true},
    HelperCheck{"exit-report", "it reports its exit after the exit request", exitIsReported, true},
    HelperCheck{"sigterm", "SIGTERM is obeyed in time", signalIsObeyed, true},
    HelperCheck{"sigterm-report", "it reports its exit after SIGTERM", signalIsReported, true},
};

}  // namespace

std::span<const HelperCheck> helperChecks() { return checks; }

Verdict runCheck(const HelperCheck& check, CheckScene& scene) {
  if (check.launches) return check.run(scene);
  if (scene.trial.isRunning()) {
    settle(scene);
  } else if (auto fault = launched(scene)) {
    return skipped("it cannot be launched: " + *fault);
  }
  auto verdict = check.run(scene);
  if (verdict.result != Result::failed && scene.trial.ask(aliveRequest).kind == Kind::late) {
    verdict = failed("it answers nothing afterwards");
  }
  if (!scene.trial.isRunning()) {
    const bool hasEnded = scene.trial.hasEnded();
    return failed(hasEnded ? "it " + scene.trial.ending() : "it has lost its name");
  }
  if (verdict.result == Result::failed) {
    scene.trial.signal(SIGKILL);  // the next check gets a process of its own
    static_cast<void>(scene.trial.hasEnded());
  }
  return verdict;
}

}  // namespace qbdkr::tool
