#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "Platform/Workspace/Program.h"

namespace qbdkr {

// Examines a program that is no script. The bytes are those that it begins with, 256 at most.
[[nodiscard]] ProgramReport reportOnNativeProgram(const std::string& path, std::string_view bytes);

// The system's part of librariesOfProgram() and programFolderOf().
[[nodiscard]] LibraryReport nativeLibrariesOf(const std::string& path,
                                              std::chrono::milliseconds patience);
[[nodiscard]] std::string nativeProgramFolderOf(const std::string& bundlePath);

}  // namespace qbdkr
