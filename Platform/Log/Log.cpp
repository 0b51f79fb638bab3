#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <ClientComm/Log.h>
#include <ClientComm/LogHandler.h>

#include "Platform/Base/DropExceptions.h"
#include "Platform/Base/ForkSafeMutex.h"
#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Log/NativeLog.h"
#include "Platform/Text/Text.h"

namespace qbdkr {
namespace {

constexpr std::size_t longestLine = 16'384;

// Stops once the line is too long: an argument may have any size.
std::string filled(const LogLine& line, bool isRedacted) {
  std::string_view format = line.format;
  std::string text;
  auto argument = line.arguments.begin();
  while (!format.empty() && text.size() <= longestLine) {
    const bool placeholder = format.starts_with("%@") || format.starts_with("%d");
    if (placeholder && argument != line.arguments.end()) {
      text += isRedacted && argument->isPrivate
                  ? "<private>"
                  : argument->text.value_or("(null)").substr(0, longestLine + 1);
      ++argument;
      format.remove_prefix(2);
    } else {
      text += format.front();
      format.remove_prefix(1);
    }
  }
  return escaped(text, {}, longestLine);
}

// The handler of this process.
class Handler {
 public:
  void set(LogHandler handler) {
    auto made = handler ? std::make_shared<const LogHandler>(std::move(handler)) : nullptr;
    isSet_ = made != nullptr;
    // The one before is destroyed after the lock is released: it may log.
    const std::lock_guard lock(mutex_);
    handler_.swap(made);
  }

  [[nodiscard]] std::shared_ptr<const LogHandler> get() const {
    if (!isSet_) return nullptr;
    const std::lock_guard lock(mutex_);
    return handler_;
  }

 private:
  std::atomic<bool> isSet_{false};
  mutable ForkSafeMutex mutex_;
  std::shared_ptr<const LogHandler> handler_;
};

Handler& handlerOfProcess() {
  static NeverDestroyed instance([] { return Handler(); });
  return *instance;
}

// Marks a thread whose lines go to the system log: the handler is at work on it.
thread_local bool isHandling = false;

class Handling {
 public:
  Handling() { isHandling = true; }
  Handling(const Handling&) = delete;
  Handling& operator=(const Handling&) = delete;
  ~Handling() { isHandling = false; }
};

}  // namespace

std::string LogLine::text() const { return filled(*this, false); }

std::string LogLine::redactedText() const { return filled(*this, true); }

void setLogHandler(LogHandler handler) { handlerOfProcess().set(std::move(handler)); }

void log(const LogLine& line) noexcept {
  dropExceptions([&] {
    const auto handler = isHandling ? nullptr : handlerOfProcess().get();
    if (!handler) return writeLogLine(line.text());
    const Handling handling;
    (*handler)(line);
  });
}

void log(std::string_view line) { log({LogLevel::notice, LogCategory::application, line, {}}); }

void log(std::string_view format, std::span<const std::optional<std::string_view>> arguments) {
  dropExceptions([=] {
    std::vector<LogArgument> own;
    own.reserve(arguments.size());
    for (const auto& argument : arguments) own.push_back(publicArgument(argument));
    log({LogLevel::notice, LogCategory::application, format, own});
  });
}

}  // namespace qbdkr
