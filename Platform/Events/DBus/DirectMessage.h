#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Events/RPCEvent.h"

// The D-Bus messages that travel on a direct connection, in the form that the bus gives them. The
// bus library makes and reads messages on its own connections only, so they are written and read
// here. Those that are read may come from anybody.
namespace qbdkr::direct {

// Answers are matched to requests by number, which D-Bus calls the serial. It is never 0.
using Serial = std::uint32_t;

// An event, or without one the question whether those before it were taken.
struct Request {
  Serial serial = 0;
  bool expectsAnswer = false;
  std::optional<RPCEvent> event;
  std::size_t size = 0;  // bytes of the event's texts
};

struct Answer {
  Serial serial = 0;        // of the request
  std::string_view error;   // the name of the error; empty for a result
  std::string_view result;  // the text; valid as long as the bytes that were read
};

// Write a message over what a buffer holds. One buffer serves many messages without new memory. An
// event is not written if the bus would refuse it for a text with a noncharacter of Unicode.
[[nodiscard]] bool writeCall(std::string& bytes, Serial serial, bool expectsAnswer,
                             const RPCEvent& event);
void writeFlush(std::string& bytes, Serial serial);
void writeResult(std::string& bytes, Serial request, std::string_view result);
void writeError(std::string& bytes, Serial request, std::string_view name);

// Read a whole message. Absent if it is no such message, or an event beyond the bounds.
[[nodiscard]] std::optional<Request> readRequest(std::string_view bytes);
[[nodiscard]] std::optional<Answer> readAnswer(std::string_view bytes);

// Returns the size of the answer that begins so; absent if this begins no message, or one larger
// than an answer can be.
[[nodiscard]] std::optional<std::size_t> sizeOfAnswer(std::string_view beginning);

}  // namespace qbdkr::direct
