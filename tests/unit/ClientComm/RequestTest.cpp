#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <ClientComm/AwaitRequest.h>
#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPGetDataByHelper.h>
#include <ClientComm/QBHPUploadByHelper.h>
#include <ClientComm/RunLoop.h>

#include "Host.h"
#include "support/RecordingTransport.h"

namespace qbdkr::test {
namespace {

using Kind = RecordingTransport::Kind;
using std::chrono::milliseconds;

// Runs the main run loop until a task of it stops it.
void runMainLoop() { RunLoop::main().run(); }

class RequestTest : public testing::Test {
 protected:
  RequestTest() { transport.reset(); }
  ~RequestTest() override { transport.canStart = true; }

  [[nodiscard]] Request<String> request() const {
    return sender.askEvnet("com.Acme.Helper", "Class", "method::", arguments);
  }

  RecordingTransport& transport = RecordingTransport::installed();
  QBHPAppleEventSender& sender = QBHPAppleEventSender::share();
  const std::array<std::string_view, 2> arguments{"4711", "3.1"};
};

TEST_F(RequestTest, IsSentOnlyWhenItIsWaitedForOrStarted) {
  transport.answerWith({noErr, "reply"});
  const auto made = request();
  EXPECT_EQ(transport.sent().size(), 0U);
  EXPECT_EQ(made.wait(), (Answer<String>{noErr, "reply"}));
  EXPECT_EQ(made.wait(RequestLimits::within(milliseconds(60'000))),
            (Answer<String>{noErr, "reply"}));
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].kind, Kind::ask) << "without limits it is the old request";
  EXPECT_EQ(sent[1].kind, Kind::start);
  EXPECT_EQ(sent[0].event, (RPCEvent{"Class", "method::", {"4711", "3.1"}}));
  EXPECT_EQ(sent[0].event, sent[1].event);
  EXPECT_EQ(sent[0].target, sent[1].target);
  EXPECT_EQ(sent[0].target.bundleID, "com.Acme.Helper");
}

TEST_F(RequestTest, ShortFormGoesToTheHelperAgent) {
  EXPECT_EQ(sender.askEvnet("Class", "method", {}).wait().status, noErr);
  EXPECT_EQ(transport.sent().at(0).target.bundleID, helperIdentifier);
}

TEST_F(RequestTest, ValueIsAbsentForAnEmptyReplyAndAfterAFailure) {
  for (const auto& answer : {RecordingTransport::Answer{noErr, ""},
                             RecordingTransport::Answer{procNotFound, std::nullopt}}) {
    transport.answerWith(answer);
    const Answer<String> expected{answer.status, std::nullopt};
    EXPECT_EQ(request().wait(), expected);
    EXPECT_EQ(request().wait(RequestLimits::within(milliseconds(60'000))), expected);
  }
}

TEST_F(RequestTest, OneThatHasPassedItsLimitsIsNotSent) {
  RequestLimits cancelled;
  cancelled.cancellation = Cancellation();
  cancelled.cancellation->cancel();
  EXPECT_EQ(request().wait(cancelled).status, userCanceledErr);
  EXPECT_EQ(request().wait(RequestLimits::within(milliseconds(0))).status, errAETimeout);
  EXPECT_EQ(transport.sent().size(), 0U);
}

TEST_F(RequestTest, CompletionComesOnTheMainRunLoopAndNotBefore) {
  transport.answerWith({noErr, "reply"});
  bool isOver = false;
  request().start({}, [&](const Answer<String>& answer) {
    EXPECT_EQ(answer, (Answer<String>{noErr, "reply"}));
    isOver = true;
    RunLoop::main().stop();
  });
  EXPECT_TRUE(transport.waitForMethod("method::"));
  EXPECT_FALSE(isOver);
  runMainLoop();
  EXPECT_TRUE(isOver);
}

TEST_F(RequestTest, CompletionComesWhereTheExecutorRunsIt) {
  std::promise<std::thread::id> ran;
  std::thread::id executed;
  request().start(
      {}, [&](const Answer<String>&) { ran.set_value(std::this_thread::get_id()); },
      [&](std::function<void()> task) {
        executed = std::this_thread::get_id();
        task();
      });
  EXPECT_EQ(ran.get_future().get(), executed);
  EXPECT_NE(executed, std::this_thread::get_id());
}

TEST_F(RequestTest, ThrowingCompletionEndsNothing) {
  request().start({}, [](const Answer<String>&) { throw std::runtime_error("x"); });
  request().start({}, [](const Answer<String>&) { RunLoop::main().stop(); });
  runMainLoop();
}

TEST_F(RequestTest, CompletionIsDestroyedWhereItRan) {
  struct Witness {
    explicit Witness(std::promise<std::thread::id>* told) : place(told) {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() { place->set_value(std::this_thread::get_id()); }
    std::promise<std::thread::id>* place;
  };
  std::promise<std::thread::id> place;
  auto witness = std::make_shared<Witness>(&place);
  request().start(
      {}, [witness = std::move(witness)](const Answer<String>&) { RunLoop::main().stop(); });
  runMainLoop();
  EXPECT_EQ(place.get_future().get(), std::this_thread::get_id());
}

TEST_F(RequestTest, WithoutAThreadItEndsWithMinus50AndNeverInsideTheCall) {
  transport.canStart = false;
  EXPECT_EQ(request().wait(RequestLimits::within(milliseconds(60'000))).status, paramErr);
  bool isOver = false;
  request().start(
      {},
      [&](const Answer<String>& answer) {
        EXPECT_EQ(answer.status, paramErr);
        isOver = true;
        RunLoop::main().stop();
      },
      [](std::function<void()> task) { task(); });
  EXPECT_FALSE(isOver);
  runMainLoop();
  EXPECT_TRUE(isOver);
}

TEST_F(RequestTest, ValueIsReadByTheReaders) {
  transport.answerWith({noErr, "12"});
  const auto number = request().readBy<int>([](const Answer<String>& answer) {
    return Answer<int>{answer.status, std::stoi(answer.value.value_or("0"))};
  });
  const auto twice = number.readBy<int>([](const Answer<int>& answer) {
    return Answer<int>{answer.status, 2 * answer.value};
  });
  EXPECT_EQ(number.wait(), (Answer<int>{noErr, 12}));
  EXPECT_EQ(twice.wait(), (Answer<int>{noErr, 24}));
}

#ifdef __cpp_lib_coroutine
struct Task {
  struct promise_type {
    Task get_return_object() {
      return Task{std::coroutine_handle<promise_type>::from_promise(*this)};
    }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { throw; }
  };
  explicit Task(std::coroutine_handle<promise_type> made) : handle(made) {}
  Task(Task&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
  Task& operator=(Task&&) = delete;
  ~Task() {
    if (handle) handle.destroy();
  }
  std::coroutine_handle<promise_type> handle;
};

Task awaitAll(Request<String> request, std::vector<Answer<String>>& answers) {
  answers.push_back(co_await request);
  answers.push_back(co_await within(RequestLimits::within(milliseconds(0)), request));
  RunLoop::main().stop();
  throw std::runtime_error("a coroutine that throws");
}

TEST_F(RequestTest, CoroutineGetsEachAnswerOnTheMainRunLoop) {
  transport.answerWith({noErr, "reply"});
  std::vector<Answer<String>> answers;
  const Task task = awaitAll(request(), answers);
  EXPECT_EQ(answers.size(), 0U);
  runMainLoop();
  EXPECT_EQ(answers, (std::vector<Answer<String>>{{noErr, "reply"}, {errAETimeout, std::nullopt}}));
}
#endif

TEST_F(RequestTest, AskingCallsOfTheServicesSendWhatTheOldOnesSend) {
  auto& upload = QBHPUploadByHelper::share();
  auto& data = QBHPGetDataByHelper::share();
  upload.productCollectStatus("P", std::nullopt);
  upload.regSuiteInfo("P", "V");
  upload.unRegSuiteInfo("P", "V");
  upload.netErrorPagePath("P", "V");
  data.clientIDFormHelper();
  data.isNotFirstStart();
  const auto old = transport.sent();
  transport.reset();
  const Request<String> requests[] = {upload.askProductCollectStatus("P", std::nullopt),
                                      upload.askRegSuiteInfo("P", "V"),
                                      upload.askUnRegSuiteInfo("P", "V"),
                                      upload.askNetErrorPagePath("P", "V"),
                                      data.askClientIDFormHelper(),
                                      data.askIsNotFirstStart()};
  transport.answerWith({noErr, "reply"});
  for (const auto& request : requests) {
    EXPECT_EQ(request.wait(RequestLimits::within(milliseconds(60'000))),
              (Answer<String>{noErr, "reply"}));
  }
  const auto sent = transport.sent();
  ASSERT_EQ(sent.size(), old.size());
  for (std::size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(sent[i].event, old[i].event);
    EXPECT_EQ(sent[i].target, old[i].target);
  }
}

}  // namespace
}  // namespace qbdkr::test
