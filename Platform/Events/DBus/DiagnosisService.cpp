#include "Platform/Events/DBus/DiagnosisService.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <utility>

#include <ClientComm/RecordedStep.h>
#include <ClientComm/RunLoop.h>

#include "Platform/Base/DetachedThread.h"
#include "Platform/Base/DropExceptions.h"
#include "Platform/Events/RPCEvent.h"
#include "Platform/Record/Record.h"

namespace qbdkr {
namespace {

constexpr const char* noDiagnosisText = "the diagnosis could not be made";

std::string recordText() {
  const auto steps = recordedSteps();
  std::string text = "This process is no host, or has made no communicator. ";
  text += steps.empty() ? "Its record is empty.\n" : "Its record:\n";
  for (const RecordedStep& step : steps) {
    text += "Step: " + timeText(step.time) + ' ' + step.text() + '\n';
  }
  return text;
}

// Makes a text that the bus takes: a path may have any bytes.
std::string madeSendable(std::string text) {
  if (isSendable(text)) return text;
  const auto isForeign = [](char byte) {
    return byte == '\0' || static_cast<unsigned char>(byte) >= 0x80;
  };
  std::ranges::replace_if(text, isForeign, '?');
  return text;
}

}  // namespace

// The same user's processes are told apart by onUser(), and not by the bus library, which would
// wait for the bus.
const sd_bus_vtable DiagnosisService::methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES(rpc::textMember, "", , rpc::resultSignature, SD_BUS_PARAM(text),
                             DiagnosisService::onQuestion, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

void DiagnosisService::setDiagnoser(std::function<std::string()> diagnoser) {
  const std::lock_guard lock(mutex_);
  diagnoser_ = std::move(diagnoser);
}

bool DiagnosisService::attach(sd_bus* bus) {
  sd_bus_slot* slot = nullptr;
  const int result =
      sd_bus_add_object_vtable(bus, &slot, rpc::objectPath, rpc::diagnosisInterface, methods, this);
  object_.reset(slot);
  return result >= 0;
}

void DiagnosisService::detach() {
  inquiry_.reset();
  question_.reset();
  object_.reset();
}

int DiagnosisService::onQuestion(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  dropExceptions([&] { static_cast<DiagnosisService*>(self)->takeQuestion(message); });
  return 1;
}

void DiagnosisService::takeQuestion(sd_bus_message* message) {
  if (question_ || isDiagnosing_) {
    sd_bus_reply_method_errorf(message, SD_BUS_ERROR_LIMITS_EXCEEDED, "another process asks now");
    return;
  }
  question_.reset(sd_bus_message_ref(message));
  sd_bus_slot* slot = nullptr;
  const char* sender = sd_bus_message_get_sender(message);
  if (sender == nullptr ||
      sd_bus_call_method_async(sd_bus_message_get_bus(message), &slot, bus::service,
                               bus::objectPath, bus::interfaceName, "GetConnectionUnixUser", onUser,
                               this, "s", sender) < 0) {
    return refuse(SD_BUS_ERROR_FAILED, noDiagnosisText);
  }
  inquiry_.reset(slot);
}

int DiagnosisService::onUser(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
  dropExceptions([&] { static_cast<DiagnosisService*>(self)->takeUser(message); });
  return 1;
}

void DiagnosisService::takeUser(sd_bus_message* message) {
  std::uint32_t user = 0;
  const bool isSame = sd_bus_message_is_method_error(message, nullptr) == 0 &&
                      sd_bus_message_read(message, "u", &user) > 0 && user == ::geteuid();
  if (!isSame) return refuse(SD_BUS_ERROR_ACCESS_DENIED, "only the same user may ask");
  isDiagnosing_ = detachNewThread([this] {
    std::optional<std::string> text;
    dropExceptions([&] { text = makeText(); });
    RunLoop::main().perform([this, text = std::move(text)] { answer(text); });
  });
  if (!isDiagnosing_) refuse(SD_BUS_ERROR_FAILED, noDiagnosisText);
}

std::string DiagnosisService::makeText() {
  std::function<std::string()> diagnoser;
  {
    const std::lock_guard lock(mutex_);
    diagnoser = diagnoser_;
  }
  return madeSendable(diagnoser ? diagnoser() : recordText());
}

void DiagnosisService::answer(const std::optional<std::string>& text) {
  isDiagnosing_ = false;
  if (!question_) return;
  if (!text ||
      sd_bus_reply_method_return(question_.get(), rpc::resultSignature, text->c_str()) < 0) {
    return refuse(SD_BUS_ERROR_FAILED, noDiagnosisText);
  }
  question_.reset();
}

void DiagnosisService::refuse(const char* error, const char* text) {
  sd_bus_reply_method_errorf(question_.get(), error, "%s", text);
  question_.reset();
}

}  // namespace qbdkr
