#pragma once

#include <filesystem>
#include <optional>

#include "Platform/Files/CopyProgress.h"
#include "Platform/Files/FileError.h"

namespace qbdkr {

// Copies a file or a whole tree to a path that does not exist: modes, links, holes, modification
// times and extended attributes as far as both file systems have them. Directories stay writable
// for their owner: otherwise a copy of a read-only tree could neither be filled nor be replaced.
// Nothing is durable yet. A failure leaves a part of the copy; its error names the original.
[[nodiscard]] std::optional<FileError> copyTree(const std::filesystem::path& from,
                                                const std::filesystem::path& to,
                                                const CopyProgress& progress);

}  // namespace qbdkr
