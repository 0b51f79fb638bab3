#include <memory>
#include <utility>

#include <ClientComm/Request.h>
#include <ClientComm/RunLoop.h>

#include "ClientComm/OutOfMemory.h"
#include "ClientComm/RequestContent.h"
#include "ClientComm/RequestRecord.h"
#include "ClientComm/WaitingRequests.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/RPCTransport.h"

namespace qbdkr {
namespace {

// Reads an answer, and records one that failed or says nothing.
Answer<String> textOf(RPCTransport::Answer answer, const RequestContent& request) {
  auto text = answeredText(std::move(answer.result));
  recordAnswer(answer.status, text.has_value(), request.target.bundleID,
               view(request.event.className), view(request.event.methodName));
  return {answer.status, std::move(text)};
}

// One completion, and the place where it is to be called.
class Delivery {
 public:
  Delivery(std::shared_ptr<const RequestContent> request, Completion<String> completion,
           Executor executor)
      : request_(std::move(request)),
        completion_(std::move(completion)),
        executor_(std::move(executor)) {}

  static void deliver(const std::shared_ptr<Delivery>& self, RPCTransport::Answer answer) {
    self->answer_ = textOf(std::move(answer), *self->request_);
    self->executor_([self] {
      // Destroys here, where its owner expects that, all that the completion holds.
      const auto completion = std::move(self->completion_);
      dropExceptions([&] { completion(std::move(self->answer_)); });
    });
  }

 private:
  const std::shared_ptr<const RequestContent> request_;
  Completion<String> completion_;
  const Executor executor_;
  Answer<String> answer_;
};

Executor onMainRunLoop() {
  return [&loop = RunLoop::main()](RunLoop::Task task) { loop.perform(std::move(task)); };
}

}  // namespace

Answer<String> TextRequest::wait(const RequestLimits& limits) const {
  return withoutMemory(Answer<String>{paramErr, {}}, [&] {
    auto& transport = RPCTransport::shared();
    const WaitingRequest waiting(view(content_->target.bundleID), view(content_->event.className),
                                 view(content_->event.methodName));
    const bool isLimited =
        limits.cancellation || limits.deadline != RequestLimits::Clock::time_point::max();
    return textOf(isLimited ? transport.askWithin(limits, content_->target, content_->event)
                            : transport.ask(content_->target, content_->event),
                  *content_);
  });
}

void TextRequest::start(const RequestLimits& limits, Completion<String> completion,
                        const Executor& executor) const {
  const auto delivery = std::make_shared<Delivery>(content_, std::move(completion),
                                                   executor ? executor : onMainRunLoop());
  const auto deliver = [delivery](RPCTransport::Answer answer) {
    Delivery::deliver(delivery, std::move(answer));
  };
  const bool isStarted =
      RPCTransport::shared().start(content_->target, content_->event, limits, deliver);
  // Not from inside this call, wherever the executor runs it.
  if (!isStarted) RunLoop::main().perform([deliver] { deliver({paramErr, {}}); });
}

}  // namespace qbdkr
