#include "Service.h"

#include <algorithm>

#include <ClientComm/Log.h>
#include <ClientComm/QBHPAppleEventProcesser.h>
#include <ClientComm/QBHPAppleEventSender.h>

#include "Database.h"

namespace acme {

using qbdkr::QBHPAppleEventProcesser;
using qbdkr::QBHPAppleEventSender;
using qbdkr::String;
using qbdkr::Text;

namespace {

// More than a path, a name or a title ever needs; a text that a host sends by mistake is not kept.
constexpr std::size_t longestText = 4096;  // bytes

}  // namespace

Service::Service(std::string_view className, State& state, const Transcript& transcript)
    : className_(className), state_(state), transcript_(transcript) {
  QBHPAppleEventProcesser::share().setObjectforKeyToMapTable(*this, className_);
}

Service::~Service() { QBHPAppleEventProcesser::share().removeObjectforKeyToMapTable(className_); }

void Service::setBundleID(Text bundleID) {
  QBHPAppEventBase::setBundleID(bundleID);
  sender_ = bundleID.value_or("");
}

String Service::performSelector(std::string_view selector, std::span<const Text> objects) {
  std::string received(className_);
  received.append(" ").append(selector);
  for (const Text& object : objects) received.append(" ").append(shown(object));
  note(received + " from " + sender_);
  const auto isTooLong = [](const Text& object) { return object && object->size() > longestText; };
  if (std::ranges::any_of(objects, isTooLong)) {
    qbdkr::log("%@ has a text that is too long", {selector});
    return std::nullopt;
  }
  String reply;
  try {
    reply = QBHPAppEventBase::performSelector(selector, objects);
  } catch (const DatabaseError& error) {  // a host that posted the request will not hear of it
    qbdkr::log("%@ was not recorded: %@", {selector, error.what()});
  }
  if (!reply) return reply;
  // A host that gets an answer may rely on all that it sent before.
  if (!state_.commit()) return std::nullopt;
  note("replied " + shown(*reply));
  return reply;
}

void Service::report(const std::string& host, qbdkr::Selector method,
                     std::initializer_list<std::string_view> arguments) const {
  const auto status =
      QBHPAppleEventSender::share().sendEvnet(host, className_, method.text(), arguments);
  std::string sent(method.text());
  for (const std::string_view argument : arguments) sent.append(" ").append(shown(argument));
  note("reports " + sent + " to " + host +
       (status == qbdkr::noErr ? "" : ", status " + std::to_string(status)));
}

}  // namespace acme
