#pragma once

#include <filesystem>
#include <optional>

#include "Platform/Files/FileError.h"

namespace qbdkr {

// Copies a file or a whole tree to a path where nothing is: modes, links, holes, modification times
// and extended attributes as far as both file systems have them. Directories stay writable for
// their owner, or a copy of a read-only tree could neither be filled nor be replaced. Nothing is
// durable yet. After a failure a part of the copy is left, and the path of the error is the one
// that was to be copied.
[[nodiscard]] std::optional<FileError> copyTree(const std::filesystem::path& from,
                                                const std::filesystem::path& to);

}  // namespace qbdkr
