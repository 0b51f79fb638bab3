#include "Platform/Files/Files.h"
#include "Platform/Workspace/NativeProgram.h"

namespace qbdkr {

// The format and the libraries are not examined here.
ProgramReport reportOnNativeProgram(const std::string& /*path*/, std::string_view /*bytes*/) {
  return {};
}

LibraryReport nativeLibrariesOf(const std::string& /*path*/,
                                std::chrono::milliseconds /*patience*/) {
  return {};
}

std::string nativeProgramFolderOf(const std::string& bundlePath) {
  return appendPathComponent(bundlePath, "Contents/MacOS");
}

}  // namespace qbdkr
