#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ClientComm/Export.h>

namespace qbdkr {

// Writes one line to the system log. Any thread. On Linux it goes to the journal if standard error
// is connected to the journal, else to standard error. Control characters, marks of direction and
// bytes that are not UTF-8 are escaped. A line longer than 16 KiB is cut there, ending in "...". If
// standard error is not read, the call blocks for 0.2 s and drops the line; later lines are dropped
// at once until there is room again. Throws nothing: if out of memory it drops the line.
QBDKR_EXPORT void log(std::string_view line);

// Does the same with each "%@" or "%d" of the format replaced by the next argument. An absent
// argument prints as "(null)"; a placeholder beyond the last argument stays as it is.
QBDKR_EXPORT void log(std::string_view format,
                      std::span<const std::optional<std::string_view>> arguments);
inline void log(std::string_view format,
                std::initializer_list<std::optional<std::string_view>> arguments) {
  log(format, std::span(arguments.begin(), arguments.size()));
}

}  // namespace qbdkr
