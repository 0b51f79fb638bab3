// A host application for tests. Each line on standard input is a tag, a command and its words; each
// command runs on a thread of its own and gives one line: the tag and the result. Reports to the
// delegate are lines that begin with "!". The main thread runs the main run loop, or, if
// QBDKR_PROBE_LOOP is "embedded", the loop of HostLoop.h.

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include <ClientComm/Bundle.h>
#include <ClientComm/Log.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPProcessList.h>
#include <ClientComm/RunLoop.h>
#include <ClientComm/UserDefaults.h>
#include <QBDKRProductClient/QBHPHelper.h>
#include <QBDKRProductClient/QBHPHelperCommunicate.h>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Events/PeerWatch.h"
#include "Platform/Events/RPCTransport.h"
#include "Platform/Workspace/Workspace.h"
#include "support/HostLoop.h"
#include "support/LimitedRequests.h"
#include "support/Patience.h"
#include "support/ProbeText.h"
#include "support/Sequence.h"
#include "support/SteadyLoad.h"
#include "support/Storm.h"

namespace {

using qbdkr::QBHPAppleEventSender;
using qbdkr::QBHPHelper;
using qbdkr::QBHPHelperCommunicate;
using qbdkr::RunLoop;
using qbdkr::String;
using qbdkr::test::absentWord;
using qbdkr::test::decoded;
using qbdkr::test::encoded;

using Words = std::vector<std::string>;

std::atomic<bool> mainThreadIsBlocked{false};

// Makes a single write: the lines of several threads do not mix.
void print(std::string line) {
  line += '\n';
  [[maybe_unused]] const auto written = ::write(STDOUT_FILENO, line.data(), line.size());
}

// Returns the loop of this host's own. Main thread only.
qbdkr::test::HostLoop& hostLoop() {
  static auto& loop = *qbdkr::test::HostLoop::make().release();
  return loop;
}

bool runsHostLoop() {
  const char* loop = std::getenv("QBDKR_PROBE_LOOP");
  return loop != nullptr && std::string_view(loop) == "embedded";
}

// Ends the loop that main() runs. Any thread.
void endMainLoop() {
  if (!runsHostLoop()) return RunLoop::main().stop();
  RunLoop::main().perform([] { hostLoop().stop(); });
}

// Opens a modal dialog, as it were: runs the loop inside a delegate call, for a second at least.
class Dialog {
 public:
  // The next delegate call opens it. It runs the loop, or it runs a loop of its own.
  void prepare(bool isEmbedded) {
    isEmbedded_ = isEmbedded;
    isWanted_ = true;
    isClosed_ = false;
  }

  // Any thread.
  void close() { isClosed_ = true; }

  void openIfWanted() {
    if (!isWanted_.exchange(false)) return;
    constexpr std::chrono::milliseconds second(1000);
    constexpr std::chrono::milliseconds interval(20);
    const auto start = std::chrono::steady_clock::now();
    const std::clock_t cpuTime = std::clock();
    int ticks = 0;
    print("! dialog opened");
    const auto timer = RunLoop::main().scheduleTimer(interval, [&](const qbdkr::RunLoopTimer&) {
      ++ticks;
      if (std::chrono::steady_clock::now() - start < second || !isClosed_.exchange(false)) return;
      isEmbedded_ ? hostLoop().stop() : RunLoop::main().stop();
    });
    if (isEmbedded_) {
      hostLoop().run();
    } else {
      RunLoop::main().run();
    }
    timer->invalidate();
    const auto milliseconds = (std::clock() - cpuTime) * 1000 / CLOCKS_PER_SEC;
    print("! dialog closed " + std::to_string(milliseconds) + ' ' + std::to_string(ticks));
  }

 private:
  std::atomic<bool> isWanted_{false};
  std::atomic<bool> isEmbedded_{false};
  std::atomic<bool> isClosed_{false};
};

Dialog& dialog() {
  static auto& instance = *new Dialog;
  return instance;
}

// Shows the reports, and passes them on to the communicator, which acts on them.
class Reports : public qbdkr::QBHPWillHelperExitDelegate,
                public qbdkr::QBHPDidCheckServerOpenDelegate {
 public:
  void willHelperExit() override {
    print("! will-exit" + where());
    count();
    QBHPHelperCommunicate::share().willHelperExit();
  }

  void didCheckServerOpen(bool open, const qbdkr::Error* error) override {
    if (!quiet) {
      print(std::string("! server ") + (open ? "open" : "closed") +
            (error == nullptr ? " no-error" : " error") + where());
    }
    count();
    dialog().openIfWanted();
    QBHPHelperCommunicate::share().didCheckServerOpen(open, error);
  }

  void waitForCount(std::size_t wanted) {
    std::unique_lock lock(mutex_);
    counted_.wait(lock, [&] { return count_ >= wanted; });
  }

  std::atomic<bool> quiet{false};

 private:
  static std::string where() {
    const bool onMainThread = gettid() == getpid();
    return std::string(onMainThread ? " main-thread" : " other-thread") +
           (mainThreadIsBlocked ? " nested" : "");
  }

  void count() {
    {
      const std::lock_guard lock(mutex_);
      ++count_;
    }
    counted_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable counted_;
  std::size_t count_ = 0;
};

Reports& reports() {
  static auto& instance = *new Reports;
  return instance;
}

QBHPHelperCommunicate& communicator() { return QBHPHelperCommunicate::share(); }

// The text of a state. A pause is given by the milliseconds that are left of it.
struct StateText {
  std::string operator()(const qbdkr::HelperInstalling& state) const {
    return "installing " + std::to_string(state.bytesDone) + " of " +
           std::to_string(state.bytesTotal);
  }
  std::string operator()(const qbdkr::HelperLaunching&) const { return "launching"; }
  std::string operator()(const qbdkr::HelperRunning& state) const {
    return "running " + encoded(state.version) + ' ' + std::to_string(state.processID);
  }
  std::string operator()(const qbdkr::HelperLost&) const { return "lost"; }
  std::string operator()(const qbdkr::HelperPaused& state) const {
    const auto left = state.until - std::chrono::steady_clock::now();
    return "paused " + std::to_string(std::chrono::ceil<std::chrono::milliseconds>(left).count());
  }
  std::string operator()(const qbdkr::HelperReplaced&) const { return "replaced"; }
  std::string operator()(const qbdkr::HelperClosed&) const { return "closed"; }
};

void report(const qbdkr::HelperState& state) {
  print("! state " + std::visit(StateText(), state) +
        (gettid() == getpid() ? "" : " other-thread"));
}

template <class Body>
auto onMainThread(Body body) {
  std::packaged_task<decltype(body())()> task(std::move(body));
  auto result = task.get_future();
  RunLoop::main().perform([&task] { task(); });
  return result.get();
}

qbdkr::Text optionalText(const std::string& word) {
  return word == absentWord ? qbdkr::Text() : qbdkr::Text(word);
}

struct Message {
  explicit Message(const Words& words)
      : texts(decoded(words)), arguments(texts.begin() + 3, texts.end()) {
    absentTarget = words.at(0) == absentWord;
  }

  qbdkr::OSErr post() const {
    return QBHPAppleEventSender::share().sendEvnet(target(), texts[1], texts[2], arguments);
  }

  qbdkr::OSErr ask(String& result) const {
    return QBHPAppleEventSender::share().sendEvnet(target(), texts[1], texts[2], arguments, result);
  }

  [[nodiscard]] qbdkr::Text target() const {
    return absentTarget ? qbdkr::Text() : qbdkr::Text(texts[0]);
  }

  std::vector<std::string> texts;
  std::vector<std::string_view> arguments;
  bool absentTarget = false;
};

std::string asked(const Words& words) {
  const Message message(words);
  String result;
  const auto status = message.ask(result);
  return std::to_string(status) + ' ' + encoded(result);
}

std::unique_ptr<qbdkr::PeerWatch>& returnWatch() {
  static auto& watch = *new std::unique_ptr<qbdkr::PeerWatch>();
  return watch;
}

// TARGET: watches a target that is on the bus, for the next command.
std::string watchForReturn(const Words& words) {
  using qbdkr::PeerWatch;
  returnWatch() = PeerWatch::make(words.at(0));
  const auto news = returnWatch()->wait(PeerWatch::Clock::now() + qbdkr::test::patience);
  return news == PeerWatch::News::appeared ? "watched" : "missing";
}

// TARGET CLASS METHOD: waits until that target has left the bus and is back, and asks it at once.
std::string askedAtReturn(const Words& words) {
  using qbdkr::PeerWatch;
  const auto deadline = PeerWatch::Clock::now() + qbdkr::test::patience;
  auto news = PeerWatch::News::vanished;
  while (news == PeerWatch::News::vanished) news = returnWatch()->wait(deadline);
  return asked(words);
}

// Asks on the main thread and does not wait there. Returns the answer, and where it came.
std::string askedFromMain(const Words& words) {
  const auto outcome = std::make_shared<std::promise<std::string>>();
  auto come = outcome->get_future();
  const Message message(words);
  const auto request = QBHPAppleEventSender::share().askEvnet(message.target(), message.texts[1],
                                                              message.texts[2], message.arguments);
  RunLoop::main().perform([outcome, request] {
    request.start({}, [outcome](const qbdkr::Answer<String>& answer) {
      outcome->set_value(std::to_string(answer.status) + ' ' + encoded(answer.value) +
                         (gettid() == getpid() ? " main-thread" : " other-thread"));
    });
  });
  return come.get();
}

// COUNT: waits for that many ticks of a timer on the main run loop.
std::string awaitTicks(const Words& words) {
  static constexpr std::chrono::milliseconds interval(5);
  const auto last = std::make_shared<std::promise<std::string>>();
  const auto left = std::make_shared<unsigned long>(std::stoul(words.at(0)));
  const auto timer = onMainThread([last, left] {
    return RunLoop::main().scheduleTimer(interval, [last, left](const qbdkr::RunLoopTimer&) {
      if (--*left == 0) last->set_value("ticked");
    });
  });
  const std::string result = last->get_future().get();
  timer->invalidate();
  return result;
}

qbdkr::OSErr flushFor(std::chrono::milliseconds time) {
  return QBHPAppleEventSender::share().flush(std::chrono::steady_clock::now() + time);
}

// MILLISECONDS: flushes, and returns the status.
std::string flushed(const Words& words) {
  return std::to_string(flushFor(std::chrono::milliseconds(std::stoul(words.at(0)))));
}

std::binary_semaphore& mainGate() {
  static auto& gate = *new std::binary_semaphore(0);
  return gate;
}

// [share]: keeps the main thread busy until the gate is released, right after the first share() if
// that is asked for. Returns when it is.
std::string blockMain(const Words& words) {
  std::promise<void> isBlocked;
  RunLoop::main().perform([&isBlocked, shares = !words.empty()] {
    if (shares) QBHPHelper::share();
    isBlocked.set_value();
    mainGate().acquire();
  });
  isBlocked.get_future().wait();
  return "blocked";
}

std::string askedForSummary(const Words& words) {
  const Message message(words);
  String result;
  const auto status = message.ask(result);
  const std::vector<std::string> answer{result.value_or("")};
  return std::to_string(status) + ' ' + qbdkr::test::summary(answer);
}

// COUNT: makes that many guarded requests in turn, and returns the status of the last.
std::string guarded(const Words& words) {
  qbdkr::OSErr status = 0;
  for (auto left = std::stoul(words.at(0)); left > 0; --left) status = communicator().showHelper();
  return std::to_string(status);
}

// TARGET CLASS METHOD THREADS COUNT: posts that many events on each thread, with the numbers of the
// thread and the event.
std::string burst(const Words& words) {
  const auto threadCount = std::stoul(words.at(3));
  const auto count = std::stoul(words.at(4));
  std::atomic<unsigned> failed{0};
  std::vector<std::thread> threads;
  for (unsigned long thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      const std::string name = std::to_string(thread);
      for (unsigned long i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        const std::array<std::string_view, 2> arguments{name, number};
        if (QBHPAppleEventSender::share().sendEvnet(words[0], words[1], words[2], arguments) != 0) {
          ++failed;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  return "failed " + std::to_string(failed);
}

std::string statusOf(pid_t child, int descriptor) {
  constexpr int patience = 20'000;  // milliseconds
  pollfd answer{descriptor, POLLIN, 0};
  int status = 0;
  const bool answered = ::poll(&answer, 1, patience) > 0 &&
                        ::read(descriptor, &status, sizeof status) == sizeof status;
  if (!answered) ::kill(child, SIGKILL);
  int ended = 0;
  ::waitpid(child, &ended, 0);
  if (WIFSIGNALED(ended)) return "signal " + std::to_string(WTERMSIG(ended));
  return answered ? "status " + std::to_string(status) : "no answer";
}

// Posts the message from a child process.
std::string forkAndPost(const Words& words) {
  const Message message(words);
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    const int status = message.post();
    [[maybe_unused]] const auto written = ::write(ends[1], &status, sizeof status);
    _exit(0);
  }
  ::close(ends[1]);
  const std::string result = statusOf(child, ends[0]);
  ::close(ends[0]);
  return result;
}

// Limits the growth of the process's address space.
class LittleMemory {
 public:
  explicit LittleMemory(std::size_t room) {
    ::getrlimit(RLIMIT_AS, &before_);
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlimit little{pages * static_cast<std::size_t>(::getpagesize()) + room, before_.rlim_max};
    ::setrlimit(RLIMIT_AS, &little);
  }
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;
  ~LittleMemory() { ::setrlimit(RLIMIT_AS, &before_); }

 private:
  rlimit before_{};
};

// ROOM SIZE: uploads a file with a description of that size, and asks with a text of it.
std::string requestInLittleMemory(const Words& words) {
  const std::string text(std::stoul(words.at(1)), 't');
  const std::array<std::string_view, 1> arguments{text};
  String result;
  const LittleMemory memory(std::stoul(words.at(0)));
  const auto upload = QBHPHelperCommunicate::share().uploadUserFile("a@b.c", "/file", "", text);
  const auto ask = QBHPAppleEventSender::share().sendEvnet("Probe", "echo:", arguments, result);
  return std::to_string(upload) + ' ' + std::to_string(ask) + (result ? " text" : " ~");
}

std::string share() {
  onMainThread([] {
    QBHPHelper::share();
    qbdkr::QBHPHelperControl::share().setHelperCtrlDelegate(&reports());
    return true;
  });
  return "shared";
}

std::string joinedSenders() {
  std::string text;
  for (const auto& identifier : QBHPHelperCommunicate::share().bundleIDSet()) {
    text += identifier + ' ';
  }
  return text.empty() ? "none" : text;
}

std::string yesOrNo(bool value) { return value ? "yes" : "no"; }

// Reads and writes settings and switches in most ways.
void useSettings() {
  auto& defaults = qbdkr::UserDefaults::standard();
  defaults.setObject("Busy", qbdkr::PropertyList("value"));
  static_cast<void>(defaults.object("Busy"));
  static_cast<void>(communicator().firstStartPID());
  static_cast<void>(communicator().collectDataPID());
  communicator().setTipsEnable(true);  // logs
}

// Returns whether a child ends in time. It may wait for the locks of settings files.
bool childReturns() {
  constexpr int patience = 20'000;  // milliseconds
  const pid_t child = fork();
  if (child == 0) {
    useSettings();
    communicator().setCollectDataPID("5");
    _exit(0);
  }
  const int end = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
  pollfd ended{end, POLLIN, 0};
  const bool returned = ::poll(&ended, 1, patience) == 1;
  if (!returned) ::kill(child, SIGKILL);
  ::close(end);
  ::waitpid(child, nullptr, 0);
  return returned;
}

std::string forkAmidSettings(const Words& words) {
  // Each thread uses one kind of lock all the time: sooner or later it is held at a fork.
  const std::vector<std::function<void()>> kinds{
      useSettings,
      [] { qbdkr::UserDefaults::standard().setObject("Busy", qbdkr::PropertyList("value")); },
      [] { static_cast<void>(qbdkr::UserDefaults::standard().object("PID")); },
      [] { onMainThread([] { return true; }); }, [] { qbdkr::log("busy"); }};
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (const auto& kind : kinds) {
    threads.emplace_back([&done, kind] {
      while (!done) kind();
    });
  }
  int returned = 0;
  const int wanted = std::stoi(words.at(0));
  while (returned < wanted && childReturns()) ++returned;
  done = true;
  for (std::thread& thread : threads) thread.join();
  return std::to_string(returned) + " children";
}

using Command = std::function<std::string(const Words&)>;

const std::map<std::string, Command>& commands() {
  static const auto& table = *new std::map<std::string, Command>{
      {"share", [](const Words&) { return share(); }},
      {"start",
       [](const Words&) {
         QBHPHelper::share().startHelper();
         return "done";
       }},
      {"stop",
       [](const Words&) {
         QBHPHelper::share().stopHelper();
         return "done";
       }},
      {"stop-status", [](const Words&) { return std::to_string(communicator().stopHelper()); }},
      {"start-status", [](const Words&) { return std::to_string(communicator().startHelper()); }},
      {"extract",
       [](const Words&) {
         communicator().extractHelper();
         return "done";
       }},
      {"supervise",
       [](const Words& words) {
         return yesOrNo(
             communicator().supervise({std::chrono::milliseconds(std::stoi(words.at(0)))}));
       }},
      {"states",
       [](const Words&) {
         communicator().setHelperStateHandler(report);
         return "done";
       }},
      {"states-off",
       [](const Words&) {
         onMainThread([] {
           communicator().setHelperStateHandler(nullptr);
           return true;
         });
         return "done";
       }},
      {"diagnose",
       [](const Words&) {
         const auto cause = communicator().diagnose().cause;
         return cause ? cause->subject + ": " + cause->text : "none";
       }},
      {"helper-agents",
       [](const Words&) {
         std::string all;
         for (const auto& helper : communicator().diagnose().helpers) {
           const auto age = std::chrono::system_clock::now() -
                            helper.since.value_or(std::chrono::system_clock::time_point());
           all += std::to_string(helper.processID) + ' ' + encoded(helper.version) + ' ' +
                  helper.bundlePath + (helper.isReached ? " reached" : " not reached") +
                  (age < std::chrono::minutes(1) ? " new;" : " old;");
         }
         return all;
       }},
      {"is-paused",
       [](const Words&) { return yesOrNo(communicator().launchPausedUntil().has_value()); }},
      {"launch", [](const Words&) { return yesOrNo(communicator().launchHelepr()); }},
      {"restart",
       [](const Words&) { return std::to_string(communicator().restartHelperInThread()); }},
      {"auto-restart",
       [](const Words&) { return std::to_string(communicator().autoRestartHelper()); }},
      {"guarded", guarded},
      {"alive", [](const Words&) { return std::to_string(communicator().isAliveHelper()); }},
      {"server-open",
       [](const Words&) { return yesOrNo(communicator().getDefaultHelperServerOpen()); }},
      {"client", [](const Words&) { return encoded(communicator().clientID()); }},
      {"fetch-client", [](const Words&) { return encoded(communicator().clientIDFormHelper()); }},
      {"not-first-start",
       [](const Words&) { return encoded(qbdkr::QBHPGetDataByHelper::share().isNotFirstStart()); }},
      {"first-start", [](const Words&) { return encoded(communicator().firstStartPID()); }},
      {"collect", [](const Words&) { return encoded(communicator().collectDataPID()); }},
      {"set-collect",
       [](const Words& words) {
         communicator().setCollectDataPID(optionalText(words.at(0)));
         return "done";
       }},
      {"data-path",
       [](const Words& words) {
         communicator().initDataCollectionPath(optionalText(words.at(0)));
         return "done";
       }},
      {"version",
       [](const Words& words) {
         return encoded(communicator().getVersionByBundlePath(optionalText(words.at(0))));
       }},
      {"app-path",
       [](const Words& words) {
         return encoded(communicator().appPath(optionalText(words.at(0))));
       }},
      {"running",
       [](const Words& words) {
         return yesOrNo(qbdkr::QBHPProcessList::share().applicationIsRunning(words.at(0), "/"));
       }},
      {"open", [](const Words& words) { return yesOrNo(qbdkr::openFile(words.at(0))); }},
      // Has the name claimed ahead of the main loop, and wants it no more.
      {"claim-and-leave",
       [](const Words&) {
         auto& transport = qbdkr::RPCTransport::shared();
         transport.setHandler([](auto&&...) { return std::string(); });
         transport.awaitName(std::chrono::steady_clock::now() + qbdkr::test::patience);
         transport.removeHandler();
         return std::string("left");
       }},
      {"senders", [](const Words&) { return joinedSenders(); }},
      {"bundle", [](const Words&) { return qbdkr::Bundle::main().bundlePath(); }},
      {"send", [](const Words& words) { return std::to_string(Message(words).post()); }},
      {"ask", asked},
      {"sequence", qbdkr::test::sequence},
      {"post-until-refused", qbdkr::test::postUntilRefused},
      {"ask-summary", askedForSummary},
      {"ask-on-main",
       [](const Words& words) {
         return onMainThread([&words] {
           mainThreadIsBlocked = true;
           auto result = asked(words);
           mainThreadIsBlocked = false;
           return result;
         });
       }},
      {"ask-from-main", askedFromMain},
      {"ticks", awaitTicks},
      {"stop-run-loop",
       [](const Words&) {
         RunLoop::main().stop();
         return "stopped";
       }},
      {"run-on-main",
       [](const Words&) {
         return onMainThread([] {
           RunLoop::main().run();
           return "ended";
         });
       }},
      {"obstacle",
       [](const Words&) { return qbdkr::RPCTransport::shared().knownObstacle().value_or("none"); }},
      {"burst", burst},
      {"watch-for-return", watchForReturn},
      {"ask-at-return", askedAtReturn},
      {"flush", flushed},
      {"send-flush-exit",
       [](const Words& words) -> std::string {
         const Message message(words);
         if (message.post() != 0) _exit(3);
         print("! posted");
         _exit(flushFor(qbdkr::test::patience) == 0 ? 0 : 4);
       }},
      {"dialog",
       [](const Words& words) {
         dialog().prepare(words.at(0) == "embedded");
         return "done";
       }},
      {"close-dialog",
       [](const Words&) {
         dialog().close();
         return "done";
       }},
      {"lose-delegate",
       [](const Words&) {
         return onMainThread([] {
           struct ShortLived : qbdkr::QBHPWillHelperExitDelegate {
             void willHelperExit() override {}
           } delegate;
           qbdkr::QBHPHelperControl::share().setHelperCtrlDelegate(&delegate);
           return std::string("lost");
         });
       }},
      {"block-main", blockMain},
      {"release-main",
       [](const Words&) {
         mainGate().release();
         return "done";
       }},
      {"request-in-little-memory", requestInLittleMemory},
      {"storm", qbdkr::test::storm},
      {"count", qbdkr::test::count},
      {"load", qbdkr::test::load},
      {"end-load",
       [](const Words&) {
         qbdkr::test::endLoad();
         return "done";
       }},
      {"collect-status",
       [](const Words&) { return yesOrNo(communicator().productCollectStatus()); }},
      {"fork-send", forkAndPost},
      {"fork-settings", forkAmidSettings},
      {"data-path-and-exit",
       [](const Words& words) -> std::string {
         communicator().initDataCollectionPath(optionalText(words.at(0)));
         _exit(0);
       }},
      {"send-and-exit",
       [](const Words& words) -> std::string {
         const Message message(words);
         _exit(message.post() == 0 ? 0 : 3);
       }},
      {"quiet",
       [](const Words&) {
         reports().quiet = true;
         return "done";
       }},
      {"reports",
       [](const Words& words) {
         reports().waitForCount(std::stoul(words.at(0)));
         return "done";
       }},
      {"quit",
       [](const Words&) {
         endMainLoop();
         return "ends";
       }},
  };
  return table;
}

void run(const std::string& line) {
  Words words = qbdkr::test::wordsOf(line);
  if (words.size() < 2) return;
  const std::string tag = words[0];
  const std::string name = words[1];
  words.erase(words.begin(), words.begin() + 2);
  const auto& limited = qbdkr::test::limitedCommands();
  const auto& table = limited.contains(name) ? limited : commands();
  const auto command = table.find(name);
  if (command == table.end()) return print(tag + " unknown command " + name);
  try {
    print(tag + ' ' + command->second(words));
  } catch (const std::exception& error) {
    print(tag + " exception " + error.what());
  }
}

}  // namespace

int main() {
  qbdkr::detachNewThread([] {
    for (std::string line; std::getline(std::cin, line);) {
      qbdkr::detachNewThread([line] { run(line); });
    }
    endMainLoop();
  });
  print("! ready " + std::to_string(getpid()));
  if (runsHostLoop()) {
    hostLoop().run();
  } else {
    RunLoop::main().run();
  }
  return 0;
}
