#include "Platform/Files/FileSystem.h"

#include "Platform/Files/NativeFiles.h"

namespace qbdkr {

std::optional<FileSystem> fileSystemOf(const std::string& path) { return nativeFileSystemOf(path); }

}  // namespace qbdkr
