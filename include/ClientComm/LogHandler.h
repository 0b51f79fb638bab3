#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/Log.h>

namespace qbdkr {

// How grave a line is.
enum class LogLevel : std::uint8_t { notice, error };

// The part of the framework that a line comes from.
enum class LogCategory : std::uint8_t {
  application,  // lines of the application itself, by log()
  deployment,   // the installation of the helper agent
  liveness,     // checks of the helper agent
  request,      // requests and their answers
  report,       // reports of the helper agent
  settings,     // switches and the collection of usage data
  bus,          // the system's way to other processes
};

// An argument of a line. Private ones are not the framework's own: e-mail addresses, titles, paths,
// answers.
struct LogArgument {
  // Refers to a text, which may be absent.
  LogArgument(std::optional<std::string_view> argument, bool isArgumentPrivate)
      : text(argument), isPrivate(isArgumentPrivate) {}

  std::optional<std::string_view> text;  // absent: shown as "(null)"
  bool isPrivate;                        // to be left out by redactedText()
};

// Make an argument that a log may show, and one that it may have to leave out.
inline LogArgument publicArgument(std::optional<std::string_view> text) { return {text, false}; }
inline LogArgument privateArgument(std::optional<std::string_view> text) { return {text, true}; }

// A line of the log. Refers to texts that live as long as the call that gets it.
struct LogLine {
  LogLevel level = LogLevel::notice;                // how grave it is
  LogCategory category = LogCategory::application;  // what it tells of
  std::string_view format;                 // "%@" and "%d" stand for the arguments, in order
  std::span<const LogArgument> arguments;  // of any size and content

  // Returns the line as log() writes it: filled, control characters escaped, cut after 16 KiB.
  // Throws std::bad_alloc.
  [[nodiscard]] QBDKR_EXPORT std::string text() const;
  // Returns the same with "<private>" for each private argument.
  [[nodiscard]] QBDKR_EXPORT std::string redactedText() const;
};

// Takes the lines of the log.
using LogHandler = std::function<void(const LogLine& line)>;

// Has each line of this process given to a handler, in place of the system log; an empty one
// restores that. Any thread; does not wait for a call that is running. The handler is called on
// the thread that logs, by several at a time, and must not block: requests log. A line that it logs
// itself goes to the system log. Its exceptions are dropped. Throws std::bad_alloc.
QBDKR_EXPORT void setLogHandler(LogHandler handler);

// Logs a line. Any thread. Throws nothing: if out of memory it drops the line.
QBDKR_EXPORT void log(const LogLine& line) noexcept;

// Log a line of these parts, as above; a notice unless a level is given.
inline void log(LogLevel level, LogCategory category, std::string_view format,
                std::initializer_list<LogArgument> arguments) noexcept {
  log(LogLine{level, category, format, std::span(arguments.begin(), arguments.size())});
}
inline void log(LogCategory category, std::string_view format,
                std::initializer_list<LogArgument> arguments = {}) noexcept {
  log(LogLevel::notice, category, format, arguments);
}

}  // namespace qbdkr
