// Reads messages of any content, as they may come on a direct connection. An event that is read
// must be within the bounds; written again, it must be read as the same.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Platform/Events/DBus/DirectMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qbdkr;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  static_cast<void>(direct::sizeOfAnswer(bytes));
  const auto answer = direct::readAnswer(bytes);
  if (answer && (answer->serial == 0 || !isSendable(answer->result))) std::abort();
  const auto request = direct::readRequest(bytes);
  if (!request || !request->event) return 0;
  if (request->serial == 0 || !isSendable(*request->event)) std::abort();
  std::string again;
  if (!direct::writeCall(again, request->serial, request->expectsAnswer, *request->event)) return 0;
  const auto same = direct::readRequest(again);
  if (!same || same->event != request->event || same->size != request->size) std::abort();
  return 0;
}
