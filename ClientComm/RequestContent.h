#pragma once

#include <optional>
#include <string>
#include <utility>

#include <ClientComm/TextValue.h>

#include "Platform/Events/RPCEvent.h"

namespace qbdkr {

// The event of a request that waits for an answer, and its target.
struct RequestContent {
  RPCTarget target;
  RPCEvent event;
};

// Returns the text of an answer. The empty text counts as no result on every transport: the bus
// cannot send it differently.
inline String answeredText(std::optional<std::string> answered) {
  return answered && !answered->empty() ? std::move(answered) : std::nullopt;
}

}  // namespace qbdkr
