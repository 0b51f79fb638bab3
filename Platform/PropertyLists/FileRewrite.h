#pragma once

#include <string>
#include <string_view>

#include <ClientComm/Export.h>

namespace qbdkr {

// Rewrite a file in place; neither a failure nor a kill costs its contents. During the rewriting
// DIRECTORY/.NAME.qbhp-rewrite lies beside DIRECTORY/NAME: a flushed record of the old contents and
// the new ones; of a file of more than 64 KiB, only from the first difference on, and only that is
// written. It is removed once the new ones are durable. A record that was left behind serves to
// restore the old ones.
//
// Every call blocks for the file system, and runs on any thread.

// Writes new contents over those of a file that exists, which stays the same file: owner, mode and
// links are kept. Shorter contents are filled up with blanks, in the encoding of the file, until
// the rest is cut: white space at the end must mean nothing to the readers of the file. True if the
// new contents are durable. False, and the old ones are kept, if the file cannot be opened for
// reading and writing, is not a regular file, exceeds 16 MiB (old or new contents), or has no
// space, or if another program has written to it meanwhile; false as well if the new ones were
// written but could not be flushed. If this user may not create files in the directory, no record
// is made, and the file is written only if its space could be reserved. Not atomic: a concurrent
// reader may see a partial file. One writer at a time: the caller holds the FileLock of the file.
QBDKR_EXPORT bool rewriteFile(const std::string& path, std::string contents,
                              std::string_view blank = "\n");

// Restores the old contents of a dictionary file if its last rewriting was cut off and left neither
// the old nor the new ones, and removes the record. Keeps contents that others have written since.
// True if contents were restored. The caller holds the FileLock of the file.
QBDKR_EXPORT bool recoverLockedFile(const std::string& path);

// Does the same for every file of a directory whose lock is free: a writer at work is left alone.
// True if contents were restored. Cheap if the directory holds no records.
QBDKR_EXPORT bool recoverFilesIn(const std::string& directory);

}  // namespace qbdkr
