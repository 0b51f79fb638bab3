#pragma once

#include <string>
#include <string_view>

#include "Platform/Base/Export.h"

namespace qbdkr {

// Rewriting a file in place so that neither a failure nor a kill costs what it held. Beside
// DIRECTORY/NAME lies DIRECTORY/.NAME.qbhp-rewrite meanwhile: a flushed record of the old contents
// and the new ones. It is removed when the new ones are durable; one that was left behind tells how
// to take the old ones back.
//
// All of it blocks for the file system, and runs on any thread.

// Writes new contents over those of a file that exists, which stays the same file: owner, mode and
// links are kept. Contents that are shorter than the old ones are filled up with blanks, in the
// encoding of the file, until they are cut: white space at its end must mean nothing to its
// readers. True when the new contents are durable. False, and the old ones are kept, when the file
// cannot be opened for reading and writing, is no file, exceeds 16 MiB, or has no room; false as
// well when the new ones were written but could not be flushed. Where the directory does not let
// this user make a file there is no record; it is then written only if room was set aside. Not
// atomic for a reader meanwhile. One writer at a time: the caller holds the FileLock of the file.
QBDKR_EXPORT bool rewriteFile(const std::string& path, std::string_view contents,
                              std::string_view blank = "\n");

// Takes back the old contents of a dictionary file if its last rewriting was cut off and left
// neither the old nor the new ones, and removes the record. What was written to the file since, by
// others, is kept. True when contents were taken back. The caller holds the FileLock of the file.
QBDKR_EXPORT bool recoverLockedFile(const std::string& path);

// The same for all files of a directory whose lock is free: a writer at work is left alone. True
// when contents were taken back. Cheap when there are no records.
QBDKR_EXPORT bool recoverFilesIn(const std::string& directory);

}  // namespace qbdkr
