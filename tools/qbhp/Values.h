#pragma once

#include <string>

#include <ClientComm/PropertyList.h>

#include "tools/qbhp/Command.h"
#include "tools/qbhp/Output.h"

namespace qbdkr::tool {

// Returns a value as JSON: a date as text of ISO 8601, data as Base64. A real number that is not
// finite is null.
[[nodiscard]] JSON jsonOf(const PropertyList& value);

// Adds a value for a reader: a dictionary and an array one entry per line, indented by their level.
// A text stands in quotes inside them, and by itself without.
void printValue(const PropertyList& value, Output& output);

// Declares "--type", and reads a value of it. Throws UsageFailure.
void offerType(CLI::App& command, std::string& type);
[[nodiscard]] PropertyList valueFrom(const std::string& text, const std::string& type);

}  // namespace qbdkr::tool
