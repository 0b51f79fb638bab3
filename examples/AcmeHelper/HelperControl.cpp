#include "HelperControl.h"

#include <array>

#include <ClientComm/RunLoop.h>

namespace acme {

using qbdkr::method;
using qbdkr::OSErr;
using qbdkr::Text;
using Request = qbdkr::QBHPHelperControl;

namespace {

constexpr std::string_view ownName = "AcmeHelper";

}  // namespace

HelperControl::HelperControl(State& state, const Transcript& transcript)
    : Service(Request::kClassName, state, transcript) {}

// The report's arguments: the reporter's name, whether the server side is open, an error code and
// an error message.
OSErr HelperControl::start(Text productID, Text prodeuctVersion) {
  products_.insert_or_assign(std::string(productID.value_or("")), prodeuctVersion.value_or(""));
  noteProducts();
  report(sender(), Request::kCheckServerOpenCallBack, {ownName, "1", "0", ""});
  return qbdkr::noErr;
}

OSErr HelperControl::stop(Text productID, Text /*prodeuctVersion*/) {
  products_.erase(std::string(productID.value_or("")));
  noteProducts();
  return qbdkr::noErr;
}

// A helper agent with windows would show and hide them here.
OSErr HelperControl::show(Text productID, Text /*prodeuctVersion*/) {
  note("is shown for product " + shown(productID));
  return qbdkr::noErr;
}

OSErr HelperControl::hide(Text productID, Text /*prodeuctVersion*/) {
  note("is hidden for product " + shown(productID));
  return qbdkr::noErr;
}

// The arrival of the request is the answer.
OSErr HelperControl::isAlive(Text /*productID*/, Text /*prodeuctVersion*/) { return qbdkr::noErr; }

OSErr HelperControl::exitHelper(Text /*productID*/, Text /*productVersion*/) {
  qbdkr::RunLoop::main().stop();
  return qbdkr::noErr;
}

void HelperControl::reportExit() const {
  for (const std::string& host : bundleIDSet()) {
    report(host, Request::kHelperExitNotify, {ownName});
  }
}

void HelperControl::noteProducts() const {
  std::string line = "works for";
  for (const auto& [product, version] : products_) {
    line.append(" ").append(product).append(" version ").append(version).append(",");
  }
  note(products_.empty() ? "works for no product" : line.substr(0, line.size() - 1));
}

std::span<const qbdkr::Method> HelperControl::methods() const {
  using Self = HelperControl;
  static constexpr std::array table{
      method<&Self::start>(Request::kStart),     method<&Self::stop>(Request::kStop),
      method<&Self::show>(Request::kShow),       method<&Self::hide>(Request::kHide),
      method<&Self::isAlive>(Request::kIsAlive), method<&Self::exitHelper>(Request::kExitHelper),
  };
  return table;
}

}  // namespace acme
