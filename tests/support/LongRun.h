#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace qbdkr::test {

// The frame of a program that runs for a long time on a test's scenery.

using Options = std::map<std::string, unsigned long>;

// Returns the options with the values of the command line, "--name 5". An option without a value
// keeps its own. Throws for any other argument.
Options parsedOptions(const std::vector<std::string>& arguments, Options options);

// Runs a body, which returns what failed, a line each. Prints that, and returns the exit status.
// SIGINT and SIGTERM end the body at its next rest(), with all that it owns.
int runLong(const std::function<std::vector<std::string>()>& body);

// Sleeps. Throws after such a signal.
void rest(std::chrono::milliseconds time);

// Prints at once, and a line of a table.
void say(const std::string& line);
void sayFigure(const std::string& name, const std::string& value);

// Returns the value below which that share of the values lies; 0 of none.
long quantile(std::vector<long> values, double share);

}  // namespace qbdkr::test
