#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// Why a file cannot be executed.
enum class ProgramFault {
  none,
  missing,
  notRegular,
  notExecutable,  // it lacks the right
  empty,
  unknownFormat,
  otherProcessor,       // the detail names it
  missingLoader,        // the detail is its path
  missingInterpreter,   // of a script; the detail is its path
  interpreterNotFound,  // one that a script has "env" look for; the detail is its name
};

// A file as the system would execute it.
struct ProgramReport {
  ProgramFault fault = ProgramFault::none;
  std::string detail;
  std::string interpreter;  // the path in the first line of a script; empty for another program
};

// Examines a file without executing it. Of one that this user may execute and not read, only the
// rights are known. Blocks for the file system, any thread.
[[nodiscard]] QBDKR_EXPORT ProgramReport reportOnProgram(const std::string& path);

// The shared libraries that a program loads when it starts.
struct LibraryReport {
  bool isKnown = false;  // false if they could not be found out; then both lists are empty
  std::vector<std::string> missing;
  std::vector<std::string> found;  // paths
};

// Asks the system's own loader for the libraries of a program in the environment of this process,
// and waits this long at most. The loader runs as a detached process for that, and executes nothing
// of the program or of its libraries. Any thread.
[[nodiscard]] QBDKR_EXPORT LibraryReport librariesOfProgram(const std::string& path,
                                                            std::chrono::milliseconds patience);

// Returns the directory of the programs in a bundle.
[[nodiscard]] QBDKR_EXPORT std::string programFolderOf(const std::string& bundlePath);

// Returns the interpreter in the first line of a script, and the one argument that it may have,
// both without the blanks around them; the first is empty if the bytes begin no script.
[[nodiscard]] std::pair<std::string, std::string> interpreterOfScript(std::string_view bytes);

}  // namespace qbdkr
