#include "Platform/Workspace/Program.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/Files.h"
#include "Platform/Workspace/NativeProgram.h"

namespace qbdkr {
namespace {

// A system reads this much of a script to find its interpreter.
constexpr std::size_t firstBytes = 256;

bool mayExecute(const std::string& path) {
  return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t";
  const auto begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool isInSearchPath(const std::string& name) {
  const char* variable = std::getenv("PATH");
  std::string_view rest = variable == nullptr ? "/bin:/usr/bin" : variable;
  while (!rest.empty()) {
    const auto end = std::min(rest.find(':'), rest.size());
    const std::string path = appendPathComponent(rest.substr(0, end), name);
    if (isRegularFile(path) && mayExecute(path)) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

// A program is started with "/" as its working directory.
std::string fromRoot(const std::string& path) { return path.starts_with('/') ? path : '/' + path; }

ProgramReport reportOnScript(std::string_view bytes) {
  const auto [interpreter, argument] = interpreterOfScript(bytes);
  ProgramReport report;
  report.interpreter = interpreter;
  const std::string path = fromRoot(interpreter);
  if (interpreter.empty() || !isRegularFile(path) || !mayExecute(path)) {
    report.fault = ProgramFault::missingInterpreter;
    report.detail = interpreter;
    return report;
  }
  // Options, variables and paths are left to env itself.
  const bool isLookedUp = lastPathComponent(interpreter) == "env" && !argument.empty() &&
                          argument.find_first_of("=/ \t") == std::string::npos &&
                          !argument.starts_with('-');
  if (isLookedUp && !isInSearchPath(argument)) {
    report.fault = ProgramFault::interpreterNotFound;
    report.detail = argument;
  }
  return report;
}

}  // namespace

std::pair<std::string, std::string> interpreterOfScript(std::string_view bytes) {
  if (!bytes.starts_with("#!")) return {};
  bytes.remove_prefix(2);
  // A NUL ends the line for the system as well.
  const auto end = bytes.find_first_of(std::string_view("\n\0", 2));
  const std::string_view line = withoutBlanks(bytes.substr(0, end));
  const auto blank = std::min(line.find_first_of(" \t"), line.size());
  return {std::string(line.substr(0, blank)), std::string(withoutBlanks(line.substr(blank)))};
}

ProgramReport reportOnProgram(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {ProgramFault::missing, "", ""};
  if (!S_ISREG(status.st_mode)) return {ProgramFault::notRegular, "", ""};
  if (!mayExecute(path)) return {ProgramFault::notExecutable, "", ""};
  if (status.st_size == 0) return {ProgramFault::empty, "", ""};
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  std::array<char, firstBytes> buffer{};
  const auto size = file ? ::read(file.get(), buffer.data(), buffer.size()) : -1;
  if (size <= 0) return {};
  const std::string_view bytes(buffer.data(), static_cast<std::size_t>(size));
  return bytes.starts_with("#!") ? reportOnScript(bytes) : reportOnNativeProgram(path, bytes);
}

LibraryReport librariesOfProgram(const std::string& path, std::chrono::milliseconds patience) {
  return nativeLibrariesOf(path, patience);
}

std::string programFolderOf(const std::string& bundlePath) {
  return nativeProgramFolderOf(bundlePath);
}

}  // namespace qbdkr
