#pragma once

#include <string>

namespace qbdkr {

// Writes one line to the system log, from any thread: no control characters, of bounded length, but
// not always UTF-8.
void writeLogLine(const std::string& line);

}  // namespace qbdkr
