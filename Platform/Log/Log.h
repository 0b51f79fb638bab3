#pragma once

#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace qbdkr {

// Writes one line to the system log, from any thread. On Linux that is the journal when standard
// error is the journal's, else standard error. Control characters are escaped, so that a text from
// outside stays within its line; a line longer than 16 KiB is cut there and ends in "...". A
// standard error that is not read holds a thread up for 0.2 s, then the line is dropped; those
// after it are dropped at once until there is room again. Throws nothing: a line for which there is
// no memory is dropped as well.
QBDKR_EXPORT void log(std::string_view line);

// The same, with each "%@" or "%d" of the format replaced by the next argument; an absent argument
// prints as "(null)".
QBDKR_EXPORT void log(std::string_view format,
                      std::span<const std::optional<std::string_view>> arguments);
inline void log(std::string_view format,
                std::initializer_list<std::optional<std::string_view>> arguments) {
  log(format, std::span(arguments.begin(), arguments.size()));
}

}  // namespace qbdkr
