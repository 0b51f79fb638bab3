#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <utility>

#include <ClientComm/Bundle.h>

#include "Platform/Base/Descriptor.h"
#include "Platform/Events/BundleIdentifier.h"
#include "Platform/Events/DBus/BusName.h"
#include "tools/qbhp/Acting.h"
#include "tools/qbhp/HeldSignals.h"
#include "tools/qbhp/HelperTrial.h"
#include "tools/qbhp/PrivateDirectory.h"

namespace qbdkr::tool {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Connection = std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)>;
using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

constexpr const char* eventPath = "/QBHP/RPCEvent";
constexpr const char* eventInterface = "QBHP.RPCEvent1";
constexpr const char* deliveryInterface = "QBHP.Delivery1";
constexpr milliseconds betweenLooks(5);  // between two looks at a process
constexpr std::chrono::seconds busStart(10);
constexpr std::size_t longestSocketPath = 107;  // of the system
// Bounds for a helper agent that writes or reports without an end.
constexpr rlimit largestFile{std::size_t{1} << 30U, std::size_t{1} << 30U};
constexpr std::size_t mostReports = 10'000;
constexpr std::size_t longestReportText = 1024;
constexpr std::size_t longestLastWords = 200;

// Returns the bundle identifier of a process, as a host learns it; empty if it belongs to no
// bundle, or has ended.
std::string identifierOfProcess(pid_t process) {
  return bundleIdentifierOf({0, static_cast<std::uint32_t>(process)}).value_or("");
}

// Returns the address of a bus at a socket. Most characters are escaped there.
std::string addressOf(const std::string& socket) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string address = "unix:path=";
  for (const char character : socket) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || character == '/' || character == '-' || character == '.') {
      address += character;
    } else {
      address += {'%', digits[byte / digits.size()], digits[byte % digits.size()]};
    }
  }
  return address;
}

std::string sentenceOf(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) return "ended by signal " + std::to_string(WTERMSIG(waitStatus));
  return "ended with exit status " + std::to_string(WEXITSTATUS(waitStatus));
}

struct Program {
  std::vector<std::string> words;
  int output;  // becomes standard output and standard error
};

// Starts a program as a child that dies with this process.
pid_t startProgram(Program program) {
  std::vector<char*> pointers;
  for (std::string& word : program.words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t process = ::fork();
  if (process < 0) throw Failure("cannot start a process");
  if (process > 0) return process;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  ::setsid();
  const int input = ::open("/dev/null", O_RDONLY);
  ::dup2(input, STDIN_FILENO);
  ::dup2(program.output, STDOUT_FILENO);
  ::dup2(program.output, STDERR_FILENO);
  for (int i = STDERR_FILENO + 1; i < 256; ++i) ::close(i);
  ::setrlimit(RLIMIT_FSIZE, &largestFile);
  if (::chdir("/") == 0) {
    ::signal(SIGPIPE, SIG_DFL);
    ::execv(pointers.front(), pointers.data());
  }
  ::_exit(127);
}

Connection connectionTo(const std::string& address) {
  sd_bus* raw = nullptr;
  sd_bus_new(&raw);
  Connection bus(raw, &sd_bus_flush_close_unref);
  if (sd_bus_set_address(raw, address.c_str()) < 0 || sd_bus_set_bus_client(raw, 1) < 0 ||
      sd_bus_start(raw) < 0) {
    throw Failure("cannot connect to the private bus");
  }
  sd_bus_set_method_call_timeout(raw, std::chrono::microseconds(busStart).count());
  return bus;
}

// Reads the texts of an event, or their beginnings; absent if it has others.
std::optional<TrialEvent> eventIn(sd_bus_message* message) {
  const char* className = nullptr;
  const char* method = nullptr;
  char** texts = nullptr;
  if (sd_bus_message_has_signature(message, "ssas") <= 0 ||
      sd_bus_message_read(message, "ss", &className, &method) < 0 ||
      sd_bus_message_read_strv(message, &texts) < 0) {
    return std::nullopt;
  }
  TrialEvent event{className, method, {}};
  for (char** text = texts; text != nullptr && *text != nullptr; ++text) {
    event.arguments.emplace_back(*text, ::strnlen(*text, longestReportText));
    std::free(*text);
  }
  std::free(texts);
  return event;
}

class Trial : public HelperTrial {
 public:
  Trial(fs::path directory, const std::string& helperBundle, milliseconds longest)
      : directory_(std::move(directory)), longest_(longest) {
    if (const auto bundle = Bundle::withPath(fs::absolute(helperBundle).string())) {
      program_ = bundle->executablePath().value_or("");
      identifier_ = bundle->infoString(kCFBundleIdentifierKey).value_or("");
      name_ = busNameOfIdentifier(identifier_).value_or("");
    }
    prepareHome();
    startBus();
    Trial::restartHost();
  }

  std::optional<std::string> launch() override;
  bool isRunning() override;
  std::string ending() override { return ending_; }
  void signal(int number) override {
    if (process_ > 0) ::kill(process_, number);
  }
  bool hasEnded() override {
    return waitUntil([this] { return !isThere() && owner() == 0; });
  }

  std::string identifierOfOwner() override { return identifierOfProcess(owner()); }
  bool canBeReplaced() override;

  TrialAnswer ask(const TrialEvent& event) override { return answerTo(messageOf(event)); }
  void post(const TrialEvent& event) override;
  TrialAnswer askMalformed() override;
  TrialAnswer askFromOutside(const TrialEvent& event) override;
  TrialAnswer introspect() override {
    return answerTo(call("org.freedesktop.DBus.Introspectable", "Introspect"));
  }
  TrialAnswer flush() override { return answerTo(call(deliveryInterface, "Flush")); }

  std::vector<TrialReport> awaitReports(const std::string& method, std::size_t count) override;
  void forgetReports() override {
    takeReports();
    reports_.clear();
  }
  void leave() override;
  void restartHost() override;

 private:
  void prepareHome() const;
  void startBus();
  void kill();
  bool isThere();
  // Returns the process that owns the name; 0 without one.
  pid_t owner();
  pid_t processOf(const std::string& name);
  Message call(const char* interface, const char* member);
  Message messageOf(const TrialEvent& event);
  TrialAnswer answerTo(const Message& message);
  // Takes reports meanwhile. Returns whether it came true in time.
  bool waitUntil(const std::function<bool()>& holds);
  void takeReports();
  void take(const Message& message, bool isToTheHost);
  std::string lastWords() const;

  fs::path directory_;
  milliseconds longest_;
  std::string program_;
  std::string identifier_;
  std::string name_;
  std::string address_;
  pid_t process_ = 0;
  std::string ending_;
  // A host sends on one connection, and receives on another.
  Connection sender_{nullptr, &sd_bus_flush_close_unref};
  Connection receiver_{nullptr, &sd_bus_flush_close_unref};
  std::map<std::string, std::string> identifiers_;  // of the connections that have reported
  std::vector<TrialReport> reports_;
};

void Trial::prepareHome() const {
  const auto set = [this](const char* variable, const char* folder) {
    const fs::path path = directory_ / folder;
    fs::create_directories(path);
    ::setenv(variable, path.c_str(), 1);
  };
  set("HOME", "home");
  set("XDG_CONFIG_HOME", "home/.config");
  set("XDG_DATA_HOME", "home/.local/share");
  set("XDG_STATE_HOME", "home/.local/state");
  set("XDG_CACHE_HOME", "home/.cache");
  set("XDG_RUNTIME_DIR", "run");
  set("TMPDIR", "tmp");
  fs::permissions(directory_ / "run", fs::perms::owner_all);
}

void Trial::startBus() {
  const std::string socket = directory_ / "bus";
  if (socket.size() > longestSocketPath) {
    throw Failure(directory_.string() + " is too long for a bus; TMPDIR may name another place");
  }
  address_ = addressOf(socket);
  const std::string configuration = directory_ / "bus.conf";
  std::ofstream file(configuration);
  file << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
          " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
          "<busconfig><type>session</type><keep_umask/><listen>"
       << address_
       << "</listen><auth>EXTERNAL</auth>\n<policy context=\"default\">"
          "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
          "<allow own=\"*\"/></policy>\n";
  for (const char* limit : {"max_incoming_bytes", "max_outgoing_bytes", "max_message_size"}) {
    file << "<limit name=\"" << limit << "\">1000000000</limit>\n";
  }
  if (!(file << "</busconfig>\n").flush()) throw Failure("cannot write to " + directory_.string());
  std::string daemon;
  for (const char* place :
       {"/usr/bin/dbus-daemon", "/bin/dbus-daemon", "/usr/local/bin/dbus-daemon"}) {
    if (daemon.empty() && ::access(place, X_OK) == 0) daemon = place;
  }
  if (daemon.empty()) throw Failure("dbus-daemon is not installed");
  const Descriptor log(
      ::open((directory_ / "bus.log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const pid_t bus = startProgram(
      {{daemon, "--nofork", "--nopidfile", "--config-file=" + configuration}, log.get()});
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), 1);
  const auto deadline = Clock::now() + busStart;
  while (!fs::exists(socket)) {
    if (::waitpid(bus, nullptr, WNOHANG) != 0 || Clock::now() > deadline) {
      throw Failure("the private bus does not start");
    }
    std::this_thread::sleep_for(betweenLooks);
  }
}

void Trial::leave() {
  receiver_.reset();
  sender_.reset();
  identifiers_.clear();
  reports_.clear();
}

void Trial::restartHost() {
  const auto deadline = Clock::now() + busStart;  // its socket may show before it listens
  while (!sender_) {
    try {
      sender_ = connectionTo(address_);
    } catch (const Failure&) {
      if (Clock::now() > deadline) throw;
      std::this_thread::sleep_for(betweenLooks);
    }
  }
  receiver_ = connectionTo(address_);
  const std::string host = Bundle::main().infoString(kCFBundleIdentifierKey).value_or("");
  // Behind the helper agent if that has taken the name: then no report comes.
  if (sd_bus_request_name(receiver_.get(), busNameOfIdentifier(host).value_or("").c_str(),
                          SD_BUS_NAME_QUEUE) < 0) {
    throw Failure("cannot own the name of a host on the private bus");
  }
}

std::optional<std::string> Trial::launch() {
  if (program_.empty()) return "the bundle has no program that CFBundleExecutable names";
  if (name_.empty()) return "the bundle has no CFBundleIdentifier that can be a name on the bus";
  if (owner() == ::getpid()) return "its identifier is that of this tool";
  kill();
  if (!waitUntil([this] { return owner() == 0; })) return "its name stays owned after a kill";
  forgetReports();
  ending_.clear();
  const Descriptor log(::open((directory_ / "helper.log").c_str(),
                              O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
  process_ = startProgram({{program_}, log.get()});
  // Takes no reports here: the first request must follow the name at once.
  const auto deadline = Clock::now() + longest_;
  while (owner() == 0) {
    if (!isThere()) return "it " + ending_ + " before it had its name" + lastWords();
    if (Clock::now() > deadline) return "it does not claim " + name_ + lastWords();
    std::this_thread::sleep_for(betweenLooks);
  }
  return std::nullopt;
}

std::string Trial::lastWords() const {
  constexpr std::streamoff part = 4096;
  std::ifstream file(directory_ / "helper.log", std::ios::ate);
  file.seekg(std::max<std::streamoff>(file.tellg() - part, 0));
  std::string last;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) last = line;
  }
  return last.empty() ? "" : ": " + std::string(beginningOf(last, longestLastWords));
}

void Trial::kill() {
  // The bus may tell a process that has ended, and has left its connection to another one.
  const pid_t other = owner();
  if (other > 0 && identifierOfProcess(other) == identifier_) ::kill(other, SIGKILL);
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  int status = 0;
  ::waitpid(process_, &status, 0);
  process_ = 0;
}

bool Trial::isThere() {
  if (process_ <= 0) return false;
  int status = 0;
  if (::waitpid(process_, &status, WNOHANG) != process_) return true;
  ending_ = sentenceOf(status);
  process_ = 0;
  return false;
}

bool Trial::isRunning() { return isThere() && owner() > 0; }

pid_t Trial::processOf(const std::string& name) {
  sd_bus_message* raw = nullptr;
  std::uint32_t process = 0;
  if (sd_bus_call_method(sender_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus", "GetConnectionUnixProcessID", nullptr, &raw, "s",
                         name.c_str()) < 0) {
    return 0;
  }
  const Message reply(raw, &sd_bus_message_unref);
  return sd_bus_message_read(raw, "u", &process) < 0 ? 0 : static_cast<pid_t>(process);
}

pid_t Trial::owner() { return name_.empty() ? 0 : processOf(name_); }

bool Trial::canBeReplaced() {
  const int result =
      sd_bus_request_name(sender_.get(), name_.c_str(), SD_BUS_NAME_REPLACE_EXISTING);
  sd_bus_release_name(sender_.get(), name_.c_str());  // a place in the queue as well
  return result > 0;
}

Message Trial::call(const char* interface, const char* member) {
  sd_bus_message* raw = nullptr;
  if (sd_bus_message_new_method_call(sender_.get(), &raw, name_.c_str(), eventPath, interface,
                                     member) < 0) {
    throw Failure("cannot make a request to " + name_);
  }
  sd_bus_message_set_auto_start(raw, 0);
  return {raw, &sd_bus_message_unref};
}

Message Trial::messageOf(const TrialEvent& event) {
  Message message = call(eventInterface, "Call");
  std::vector<char*> texts;
  for (const std::string& text : event.arguments) texts.push_back(const_cast<char*>(text.c_str()));
  texts.push_back(nullptr);
  if (sd_bus_message_append(message.get(), "ss", event.className.c_str(), event.method.c_str()) <
          0 ||
      sd_bus_message_append_strv(message.get(), texts.data()) < 0) {
    throw Failure("cannot make a request to " + name_);
  }
  return message;
}

TrialAnswer Trial::answerTo(const Message& message) {
  using Kind = TrialAnswer::Kind;
  sd_bus_error error{};
  sd_bus_message* raw = nullptr;
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(longest_).count();
  const int result =
      sd_bus_call(sender_.get(), message.get(), static_cast<std::uint64_t>(time), &error, &raw);
  const Message reply(raw, &sd_bus_message_unref);
  if (result < 0) {
    // The bus says "NoReply" of a peer that has left, which is the same number as a time-out.
    const std::string name = error.name == nullptr ? "" : error.name;
    const bool isLate = result == -ETIMEDOUT && name != SD_BUS_ERROR_NO_REPLY;
    TrialAnswer answer{isLate ? Kind::late : Kind::error, name};
    sd_bus_error_free(&error);
    return answer;
  }
  const char* text = nullptr;
  if (sd_bus_message_is_empty(raw) > 0 || sd_bus_message_read(raw, "s", &text) < 0) {
    return {Kind::noText, ""};
  }
  return {Kind::text, text};
}

void Trial::post(const TrialEvent& event) {
  const Message message = messageOf(event);
  sd_bus_message_set_expect_reply(message.get(), 0);
  sd_bus_send(sender_.get(), message.get(), nullptr);
}

TrialAnswer Trial::askMalformed() {
  const Message message = call(eventInterface, "Call");
  sd_bus_message_append(message.get(), "i", 1);
  return answerTo(message);
}

TrialAnswer Trial::askFromOutside(const TrialEvent& event) {
  const fs::path outside = directory_ / "outside";
  static const fs::path program = placeOwnProgram(outside);
  const fs::path file = directory_ / "outside.json";
  const Descriptor log(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const auto seconds = std::chrono::duration<double>(longest_).count();
  std::vector<std::string> words{
      program, "ask",       "--json",        "--timeout", std::to_string(seconds),
      "--",    identifier_, event.className, event.method};
  words.insert(words.end(), event.arguments.begin(), event.arguments.end());
  const pid_t process = startProgram({words, log.get()});
  int status = 0;
  ::waitpid(process, &status, 0);
  std::ifstream stream(file);
  std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  // A message on standard error follows.
  const auto json = JSON::parse(text.substr(0, text.rfind("\n}") + 2), nullptr, false);
  if (json.is_discarded() || !json.contains("status")) {
    return {TrialAnswer::Kind::error, "a copy of this tool outside of a bundle does not run"};
  }
  constexpr int timeOut = -1712;
  if (json["status"] == timeOut) return {TrialAnswer::Kind::late, ""};
  if (json["result"].is_string()) return {TrialAnswer::Kind::text, json["result"]};
  if (json["status"] == 0) return {TrialAnswer::Kind::noText, ""};
  return {TrialAnswer::Kind::error, "status " + json["status"].dump()};
}

bool Trial::waitUntil(const std::function<bool()>& holds) {
  const auto deadline = Clock::now() + longest_;
  for (;;) {
    takeReports();
    if (holds()) return true;
    if (Clock::now() > deadline) return false;
    std::array<pollfd, 2> inputs{
        {{sd_bus_get_fd(sender_.get()), POLLIN, 0}, {sd_bus_get_fd(receiver_.get()), POLLIN, 0}}};
    ::poll(inputs.data(), inputs.size(), static_cast<int>(betweenLooks.count()));
  }
}

void Trial::takeReports() {
  for (sd_bus* bus : {sender_.get(), receiver_.get()}) {
    for (std::size_t taken = 0; taken < mostReports; ++taken) {
      sd_bus_message* raw = nullptr;
      const int result = sd_bus_process(bus, &raw);
      if (result <= 0) break;
      if (raw != nullptr) take({raw, &sd_bus_message_unref}, bus == receiver_.get());
    }
    sd_bus_flush(bus);
  }
}

void Trial::take(const Message& message, bool isToTheHost) {
  sd_bus_message* const raw = message.get();
  if (sd_bus_message_is_method_call(raw, nullptr, nullptr) <= 0) return;
  if (isToTheHost && sd_bus_message_is_method_call(raw, deliveryInterface, "Flush") > 0) {
    sd_bus_reply_method_return(raw, "");
    return;
  }
  std::optional<TrialEvent> event;
  const char* path = sd_bus_message_get_path(raw);
  if (path != nullptr && std::string_view(path) == eventPath &&
      sd_bus_message_is_method_call(raw, eventInterface, "Call") > 0) {
    event = eventIn(raw);
  }
  const bool wantsReply = sd_bus_message_get_expect_reply(raw) > 0;
  if (!event || !isToTheHost) {
    if (wantsReply) {
      sd_bus_reply_method_errorf(raw, SD_BUS_ERROR_UNKNOWN_OBJECT, "Unknown object");
    }
    if (!event) return;
  }
  const char* connection = sd_bus_message_get_sender(raw);
  const std::string sender = connection == nullptr ? "" : connection;
  const auto known = identifiers_.find(sender);
  const std::string identifier =
      known != identifiers_.end()
          ? known->second
          : identifiers_.emplace(sender, identifierOfProcess(processOf(sender))).first->second;
  if (reports_.size() < mostReports) {
    reports_.push_back({std::move(*event), isToTheHost, identifier});
  }
  if (wantsReply && isToTheHost) sd_bus_reply_method_return(raw, "s", "");
}

std::vector<TrialReport> Trial::awaitReports(const std::string& method, std::size_t count) {
  const auto isOfIt = [&method](const TrialReport& report) {
    return report.event.method == method;
  };
  static_cast<void>(waitUntil(
      [&] { return static_cast<std::size_t>(std::ranges::count_if(reports_, isOfIt)) >= count; }));
  std::vector<TrialReport> found;
  std::ranges::copy_if(reports_, std::back_inserter(found), isOfIt);
  return found;
}

// Kills all children of this process, and those that they leave behind.
void endChildren() {
  const std::string list = "/proc/self/task/" + std::to_string(::getpid()) + "/children";
  const auto deadline = Clock::now() + busStart;
  while (Clock::now() < deadline) {
    std::ifstream file(list);
    for (pid_t child = 0; file >> child;) ::kill(child, SIGKILL);
    pid_t ended = 0;
    while ((ended = ::waitpid(-1, nullptr, WNOHANG)) > 0) {
    }
    if (ended < 0) return;  // no child is left
    std::this_thread::sleep_for(betweenLooks);
  }
}

[[noreturn]] void runBody(const std::function<Exit(const std::string& directory)>& body,
                          const std::string& directory) {
  Exit exit = Exit::no;
  try {
    exit = body(directory);
  } catch (const std::exception& error) {
    complain("qbhp check-helper", error.what());
  }
  ::_exit(static_cast<int>(exit));
}

struct TrialEnd {
  int status;
  int signal;
};

TrialEnd runHeld(const std::function<Exit(const std::string& directory)>& body) {
  const HeldSignals signals;
  const PrivateDirectory directory;
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t own = ::getpid();
  const pid_t process = ::fork();
  if (process < 0) throw Failure("cannot start a process");
  if (process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != own) ::_exit(1);
    ::signal(SIGCHLD, SIG_DFL);
    ::sigprocmask(SIG_SETMASK, &signals.before(), nullptr);
    runBody(body, directory.path());
  }
  TrialEnd end{0, 0};
  while (::waitpid(process, &end.status, WNOHANG) == 0) {
    const int number = signals.next();
    if (number == SIGCHLD) continue;
    end.signal = number;
    ::kill(process, SIGKILL);
  }
  endChildren();
  return end;
}

}  // namespace

std::unique_ptr<HelperTrial> HelperTrial::make(const std::string& directory,
                                               const std::string& helperBundle,
                                               milliseconds longest) {
  return std::make_unique<Trial>(directory, helperBundle, longest);
}

Exit runGuarded(const std::function<Exit(const std::string& directory)>& body) {
  const TrialEnd end = runHeld(body);
  if (end.signal != 0) ::raise(end.signal);
  if (WIFEXITED(end.status)) return static_cast<Exit>(WEXITSTATUS(end.status));
  // A signal of the terminal may reach the child alone.
  if (WTERMSIG(end.status) != SIGKILL) ::raise(WTERMSIG(end.status));
  throw Failure("the check " + sentenceOf(end.status));
}

}  // namespace qbdkr::tool
