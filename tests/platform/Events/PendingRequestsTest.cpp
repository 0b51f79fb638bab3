#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Events/PendingRequests.h"

namespace qbdkr {
namespace {

using std::chrono::milliseconds;
using Clock = PendingRequests::Clock;
using Answers = std::vector<RPCTransport::Answer>;

// Stands in for a transport: nothing is sent, and the test does the work of its thread.
class PendingRequestsTest : public testing::Test {
 protected:
  PendingRequests::Request make(const RequestLimits& limits = {}, const std::string& text = "x") {
    return std::make_shared<PendingRequest>(
        RPCTarget{}, RPCEvent{"Class", "method:", {text}}, limits,
        [this](RPCTransport::Answer answer) { answers.push_back(std::move(answer)); });
  }

  PendingRequests::Request add(const RequestLimits& limits = {}) {
    auto request = make(limits);
    requests.add(request);
    return request;
  }

  bool send(const PendingRequests::Request& request) { return requests.beginSending(*request); }

  void complete() { PendingRequests::complete(requests.takeFinished()); }

  int wakes = 0;
  PendingRequests requests{[this] { ++wakes; }};
  Answers answers;
};

TEST_F(PendingRequestsTest, AreSentInTheOrderInWhichTheyWereAdded) {
  const auto first = add();
  const auto second = add();
  EXPECT_EQ(wakes, 2);
  EXPECT_EQ(requests.firstUnsent(), first);
  EXPECT_LT(requests.firstUnsentNumber(), requests.lastNumber());
  EXPECT_TRUE(send(first));
  EXPECT_EQ(requests.firstUnsent(), second);
  EXPECT_EQ(requests.firstUnsentNumber(), requests.lastNumber());
  EXPECT_TRUE(send(second));
  EXPECT_EQ(requests.firstUnsent(), nullptr);
  EXPECT_GT(requests.firstUnsentNumber(), requests.lastNumber());
  EXPECT_FALSE(requests.hasUnsent());
  EXPECT_TRUE(requests.hasOpen());
}

TEST_F(PendingRequestsTest, FirstAnswerCountsAndIsGivenOnce) {
  const auto request = add();
  EXPECT_TRUE(send(request));
  request->finish({noErr, "first"});
  request->finish({noErr, "second"});
  request->onCancel();
  requests.finishSent(connectionInvalid);
  EXPECT_EQ(answers, Answers{}) << "a completion was called from inside another call";
  EXPECT_TRUE(requests.hasFinished());
  complete();
  complete();
  EXPECT_EQ(answers, (Answers{{noErr, "first"}}));
  EXPECT_FALSE(requests.hasOpen());
}

TEST_F(PendingRequestsTest, OneThatWasCancelledIsNotSent) {
  RequestLimits limits;
  limits.cancellation = Cancellation();
  const auto request = add(limits);
  limits.cancellation->cancel();
  EXPECT_FALSE(send(request));
  EXPECT_FALSE(requests.hasUnsent());
  const auto late = add(limits);
  EXPECT_FALSE(requests.hasUnsent());
  complete();
  EXPECT_EQ(answers, (Answers{{userCanceledErr, {}}, {userCanceledErr, {}}}));
}

TEST_F(PendingRequestsTest, EndAtTheirDeadlineInItsOrder) {
  const auto now = Clock::now();
  const auto late = add({now + milliseconds(60'000), {}});
  const auto early = add({now + milliseconds(50'000), {}});
  const auto never = add();
  EXPECT_TRUE(send(late));
  EXPECT_EQ(requests.nextDeadline(), early->limits().deadline);
  requests.expire(now + milliseconds(49'999));
  EXPECT_FALSE(requests.hasFinished());
  requests.expire(now + milliseconds(50'000));
  EXPECT_EQ(requests.nextDeadline(), late->limits().deadline);
  EXPECT_FALSE(send(early));
  requests.expire(Clock::time_point::max() - milliseconds(1));
  EXPECT_EQ(requests.nextDeadline(), Clock::time_point::max());
  complete();
  EXPECT_EQ(answers, (Answers{{errAETimeout, {}}, {errAETimeout, {}}}));
  EXPECT_TRUE(send(never));
}

TEST_F(PendingRequestsTest, OneWhoseDeadlineHasPassedIsNotSent) {
  add({Clock::now() - milliseconds(1), {}});
  EXPECT_FALSE(requests.hasUnsent());
  complete();
  EXPECT_EQ(answers, (Answers{{errAETimeout, {}}}));
}

TEST_F(PendingRequestsTest, OneThatIsRefusedEndsWithThatStatus) {
  requests.add(make(), procNotFound);
  EXPECT_FALSE(requests.hasUnsent());
  complete();
  EXPECT_EQ(answers, (Answers{{procNotFound, {}}}));
}

TEST_F(PendingRequestsTest, EndOfAConnectionSparesThoseThatWereNotSent) {
  const auto sent = add();
  const auto unsent = add();
  EXPECT_TRUE(send(sent));
  requests.finishSent(connectionInvalid);
  EXPECT_EQ(requests.firstUnsent(), unsent);
  requests.finishUnsent(procNotFound);
  complete();
  EXPECT_EQ(answers, (Answers{{connectionInvalid, {}}, {procNotFound, {}}}));
}

TEST_F(PendingRequestsTest, ThrowingCompletionHarmsNoOther) {
  const auto throwing = std::make_shared<PendingRequest>(
      RPCTarget{}, RPCEvent{}, RequestLimits{},
      [](const RPCTransport::Answer&) { throw std::runtime_error("x"); });
  requests.add(throwing);
  add();
  requests.finishUnsent(procNotFound);
  EXPECT_NO_THROW(complete());
  EXPECT_EQ(answers, (Answers{{procNotFound, {}}}));
}

TEST_F(PendingRequestsTest, MoreThanTheBoundAreRefusedUntilOthersHaveEnded) {
  for (std::size_t i = 0; i < mostPendingRequests; ++i) add();
  EXPECT_FALSE(requests.hasFinished());
  add();
  complete();
  EXPECT_EQ(answers, (Answers{{paramErr, {}}}));
  requests.firstUnsent()->finish({noErr, {}});
  complete();
  add();
  EXPECT_FALSE(requests.hasFinished());
}

TEST_F(PendingRequestsTest, MoreTextThanTheBoundIsRefused) {
  const std::string large(mostPendingContent / 4, 't');
  for (int i = 0; i < 3; ++i) requests.add(make({}, large));
  EXPECT_FALSE(requests.hasFinished());
  requests.add(make({}, large));
  complete();
  EXPECT_EQ(answers, (Answers{{paramErr, {}}}));
}

TEST_F(PendingRequestsTest, RequestAndItsHandleDoNotKeepEachOtherAlive) {
  RequestLimits limits;
  limits.cancellation = Cancellation();
  std::weak_ptr<PendingRequest> request = add(limits);
  requests.finishUnsent(procNotFound);
  complete();
  EXPECT_TRUE(request.expired());
  limits.cancellation->cancel();
  EXPECT_EQ(answers.size(), 1U);
}

TEST_F(PendingRequestsTest, AnswersCancellationsAndDeadlinesOfManyThreadsEndEachOnce) {
  constexpr int count = 2000;
  RequestLimits limits = RequestLimits::within(milliseconds(5));
  limits.cancellation = Cancellation();
  PendingRequests shared([] {});
  std::vector<PendingRequests::Request> all;
  for (int i = 0; i < count; ++i) {
    all.push_back(make(limits));
    shared.add(all.back());
  }
  std::thread answering([&] {
    for (const auto& request : all) {
      if (shared.beginSending(*request)) request->finish({noErr, {}});
    }
  });
  std::thread cancelling([&] { limits.cancellation->cancel(); });
  while (answers.size() < count) {
    shared.expire(Clock::now());
    PendingRequests::complete(shared.takeFinished());
  }
  answering.join();
  cancelling.join();
  PendingRequests::complete(shared.takeFinished());
  EXPECT_EQ(answers.size(), count);
}

}  // namespace
}  // namespace qbdkr
