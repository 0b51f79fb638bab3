// Measures events between processes beside their references, and prints the samples of both. The
// peers and the bus run already, all on one processor.

#include <sched.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <ClientComm/QBHPAppleEventSender.h>
#include <ClientComm/QBHPUploadByHelper.h>

#include "BareConnection.h"
#include "Samples.h"
#include "TimeOnTheWay.h"
#ifdef QBDKR_HAS_GLIB
#include "GLibReferences.h"
#endif

namespace {

using namespace qbdkr::bench;
using qbdkr::QBHPAppleEventSender;
using Service = qbdkr::QBHPUploadByHelper;

const std::string agent = "com.Acme.EchoAgent";
const std::string product = "1001";
const std::string version = "1.0";

// The same as the service class sends.
const Call question{agent,
                    std::string(Service::kClassName),
                    std::string(Service::kProductCollectStatus.text()),
                    {product, version}};
const Call message{agent,
                   std::string(Service::kClassName),
                   std::string(Service::kSetProductCollectStatus.text()),
                   {product, version, "1"}};

void ask() {
  if (Service::share().productCollectStatus(product, version) != "1") {
    fail("a request was not answered");
  }
}

// Past the service class, which writes a log line for each of its posts.
qbdkr::OSErr post() {
  static const std::vector<std::string_view> arguments(message.arguments.begin(),
                                                       message.arguments.end());
  return QBHPAppleEventSender::share().sendEvnet(message.peer, message.className, message.method,
                                                 arguments);
}

void postToPeer() {
  if (post() != qbdkr::noErr) fail("a post failed");
}

void waitForPeer() {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (Service::share().productCollectStatus(product, version) != "1") {
    if (Clock::now() > deadline) fail("the peer does not answer");
    sched_yield();
  }
}

std::function<void()> referenceOfQuestion(std::string_view name, BareConnection& bare) {
  if (name == "sd-bus") {
    return [&bare] {
      if (bare.ask(question) != "1") fail("the bare call got another answer");
    };
  }
#ifdef QBDKR_HAS_GLIB
  if (name == "gdbus") return gdbusCall(question);
  if (name == "seqpacket") return packetExchange(question, "1");
#endif
  fail("this reference was not built: it takes the headers of GLib");
}

void measureQuestion(std::string_view reference) {
  BareConnection bare;
  alternate(60, 200, ask, referenceOfQuestion(reference, bare));
}

// Waits between the samples until the posted events are handled: the bus would fill up.
void measurePost() {
  BareConnection bare;
  const auto settle = [&bare] {
    ask();
    bare.ask(question);
  };
  alternate(
      100, 200, postToPeer, [&bare] { bare.post(message); }, settle);
}

// Both agents are called by the same bare connection.
void measureEntry() {
  BareConnection bare;
  const auto nanoseconds = [&bare](const char* peer) {
    return std::stod(bare.ask({peer, "Echo", "entry:", {std::to_string(nanosecondsNow())}}));
  };
  const auto sample = [&nanoseconds](const char* side, const char* peer) {
    constexpr int rounds = 200;
    double sum = 0;
    for (int i = 0; i < rounds; ++i) sum += nanoseconds(peer);
    print(side, sum / rounds / 1000);
  };
  for (int i = 0; i < 60; ++i) {
    sample("ours", agent.c_str());
    sample("theirs", "com.Acme.BareAgent");
  }
}

// Prints the status of a post to a peer that ended.
void measureGone() { print("ours", post()); }

void measureArguments(int count) {
  Call call{agent, "Echo", "entry:", std::vector<std::string>(static_cast<std::size_t>(count))};
  for (std::string& text : call.arguments) text = "eleven text";
  const std::vector<std::string_view> arguments(call.arguments.begin(), call.arguments.end());
  BareConnection bare;
  alternate(
      20, 50,
      [&arguments] {
        qbdkr::String answer;
        if (QBHPAppleEventSender::share().sendEvnet(agent, "Echo", "entry:", arguments, answer)) {
          fail("a request was not answered");
        }
      },
      [&] { bare.ask(call); });
}

void runOnThreads(int count, const std::function<void()>& body) {
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) threads.emplace_back(body);
  for (std::thread& thread : threads) thread.join();
}

// Prints microseconds for each post. In the reference each thread has a connection of its own.
void measureSenders(int count) {
  constexpr int posts = 3200;
  const int each = posts / count;
  const auto sample = [&](const char* side, const std::function<void()>& body) {
    print(side, timeOf([&] { runOnThreads(count, body); }) / (each * count));
    ask();
    BareConnection().ask(question);
  };
  for (int i = 0; i < 20; ++i) {
    sample("ours", [each] {
      for (int k = 0; k < each; ++k) postToPeer();
    });
    sample("theirs", [each] {
      BareConnection bare;
      for (int k = 0; k < each; ++k) bare.post(message);
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 1 ? argv[1] : "";
  const std::string_view how = argc > 2 ? argv[2] : "";
  const auto number = [&how] { return std::atoi(std::string(how).c_str()); };
  if (what == "gone") {
    measureGone();
    return 0;
  }
  waitForPeer();
  if (what == "ask") {
    measureQuestion(how);
  } else if (what == "post") {
    measurePost();
  } else if (what == "entry") {
    measureEntry();
  } else if (what == "arguments" && number() > 0) {
    measureArguments(number());
  } else if (what == "senders" && number() > 0) {
    measureSenders(number());
  } else {
    fail("usage: RequestBench ask REFERENCE|post|entry|gone|arguments N|senders N");
  }
}
