#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include <ClientComm/QBHPAppEventBase.h>

#include "State.h"
#include "Transcript.h"

namespace acme {

// The common part of every service of this helper agent: it answers under the name of a class,
// knows the sender, shows each request, and answers only when its state is durable.
class Service : public qbdkr::QBHPAppEventBase {
 public:
  // The class name must be a constant.
  Service(std::string_view className, State& state, const Transcript& transcript);
  ~Service() override;

  [[nodiscard]] std::string_view className() const final { return className_; }

  // Sets the sender of the next request.
  void setBundleID(qbdkr::Text bundleID) final;
  qbdkr::String performSelector(std::string_view selector,
                                std::span<const qbdkr::Text> objects) final;

 protected:
  // Returns the host whose request is being served.
  [[nodiscard]] const std::string& sender() const { return sender_; }
  State& state() { return state_; }
  void note(std::string_view line) const { transcript_.write(line); }
  // Reports to a host.
  void report(const std::string& host, qbdkr::Selector method,
              std::initializer_list<std::string_view> arguments) const;

 private:
  std::string_view className_;
  State& state_;
  const Transcript& transcript_;
  std::string sender_;
};

}  // namespace acme
