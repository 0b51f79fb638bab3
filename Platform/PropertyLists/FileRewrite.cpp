#include "Platform/PropertyLists/FileRewrite.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>

#include <ClientComm/PropertyList.h>

#include "Platform/Base/Descriptor.h"
#include "Platform/Files/FileLock.h"
#include "Platform/Files/Files.h"
#include "Platform/Files/NativeFiles.h"
#include "Platform/PropertyLists/PropertyListReader.h"

namespace qbdkr {
namespace {

constexpr std::size_t mostBytes = std::size_t{16} << 20U;  // as for a property list
// A record of all contents restores a file from anything, even if it was emptied by a fault that is
// not ours.
constexpr std::size_t mostBytesRecordedWhole = std::size_t{64} << 10U;
constexpr std::string_view recordMark = "qbhp-rewrite ";
constexpr std::string_view recordSuffix = ".qbhp-rewrite";

std::string recordPath(const std::string& path) {
  const std::string name = std::string(".").append(lastPathComponent(path)).append(recordSuffix);
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? name : path.substr(0, slash + 1) + name;
}

std::string directoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

// --- Bytes of a file that is open

Descriptor openRegularFile(const std::string& path, int flags) {
  Descriptor file(::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  return file;
}

bool writeAt(int file, std::size_t place, std::string_view contents) {
  while (!contents.empty()) {
    const auto written =
        ::pwrite(file, contents.data(), contents.size(), static_cast<off_t>(place));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    contents.remove_prefix(static_cast<std::size_t>(written));
    place += static_cast<std::size_t>(written);
  }
  return true;
}

bool holds(int file, std::string_view contents) {
  std::array<char, 16384> buffer{};
  for (std::size_t place = 0;;) {
    const auto count = ::pread(file, buffer.data(), buffer.size(), static_cast<off_t>(place));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    if (contents.substr(place, bytes.size()) != bytes) return false;
    place += bytes.size();
    if (bytes.empty()) return place == contents.size();
  }
}

bool cut(int file, std::size_t size) {
  return ::ftruncate(file, static_cast<off_t>(size)) == 0 && flushDescriptor(file);
}

// Checks the limit on the size of this process's files, which reserving space does not.
bool mayHaveSize(std::size_t size) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
         static_cast<rlim_t>(size) <= limit.rlim_cur;
}

// --- One rewriting

// In a large file, the bytes before the first difference are neither written nor recorded.
struct Rewriting {
  std::size_t kept;         // the count of bytes before that
  std::string_view before;  // the old bytes from there on
  std::string_view filled;  // the bytes written over them, at least as many
  std::size_t size;         // the count of these that stay
};

std::size_t commonPrefix(std::string_view a, std::string_view b) {
  constexpr std::size_t block = 4096;  // compared at once
  std::size_t length = 0;
  while (length < std::min(a.size(), b.size()) &&
         a.substr(length, block) == b.substr(length, block)) {
    length += block;
  }
  length = std::min({length, a.size(), b.size()});
  a.remove_prefix(length);
  b.remove_prefix(length);
  return length + static_cast<std::size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

std::size_t keptOf(std::string_view before, std::string_view contents) {
  return before.size() > mostBytesRecordedWhole ? commonPrefix(before, contents) : 0;
}

bool takeBack(int file, const Rewriting& rewriting) {
  return writeAt(file, rewriting.kept, rewriting.before) &&
         cut(file, rewriting.kept + rewriting.before.size());
}

// --- Its record: a line with its numbers, the old bytes, the new ones filled up. Earlier versions
// kept no bytes and left their count out.

std::string firstLineOf(const Rewriting& rewriting) {
  return std::string(recordMark)
      .append(std::to_string(rewriting.before.size()))
      .append(" ")
      .append(std::to_string(rewriting.size))
      .append(" ")
      .append(std::to_string(rewriting.kept))
      .append("\n");
}

bool takeNumber(std::string_view& text, char end, std::size_t& number) {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop == text.data() + text.size() || *stop != end) return false;
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()) + 1);
  return true;
}

std::optional<Rewriting> recordedRewriting(std::string_view record) {
  if (!record.starts_with(recordMark)) return std::nullopt;
  record.remove_prefix(recordMark.size());
  std::size_t before = 0;
  std::size_t size = 0;
  std::size_t kept = 0;
  if (!takeNumber(record, ' ', before)) return std::nullopt;
  const bool isComplete = takeNumber(record, '\n', size) ||
                          (takeNumber(record, ' ', size) && takeNumber(record, '\n', kept));
  if (!isComplete || before > record.size() || record.size() - before < std::max(before, size)) {
    return std::nullopt;
  }
  return Rewriting{kept, record.substr(0, before), record.substr(before), size};
}

bool mayMakeFilesIn(const std::string& directory) {
  return ::faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

// Accepts only a file of this user: others with write access to the directory could put anything in
// place of a record.
bool isOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

bool isOwnFile(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && isOwnFile(status);
}

std::optional<std::string> readRecord(const std::string& path) {
  const Descriptor file = openRegularFile(path, O_RDONLY | O_NOFOLLOW);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !isOwnFile(status)) return std::nullopt;
  return contentsOfFile(file.get(), 3 * mostBytes);
}

// --- Whether a rewriting was cut off

bool isDictionary(std::string_view contents) {
  const auto list = contents.empty() ? std::nullopt : parsePropertyList(contents);
  return list && list->dictionary() != nullptr;
}

bool isWhole(std::string_view written, const Rewriting& rewriting) {
  return written == rewriting.before || written == rewriting.filled ||
         written == rewriting.filled.substr(0, rewriting.size);
}

// Tells whether bytes mix old and new ones in any order: a crashing system stores pages as it
// likes. A mixture may well be readable, with a letter too many in one of its texts.
bool isMixture(std::string_view written, const Rewriting& rewriting) {
  const auto& [kept, before, filled, size] = rewriting;
  if (written.size() < std::min(before.size(), size) || written.size() > filled.size()) {
    return false;
  }
  for (std::size_t i = 0; i < written.size(); ++i) {
    const bool isOld = i < before.size() && written[i] == before[i];
    if (!isOld && written[i] != filled[i]) return false;
  }
  return true;
}

bool wasCutOff(std::string_view contents, const Rewriting& rewriting) {
  if (contents.size() < rewriting.kept) return false;
  const std::string_view kept = contents.substr(0, rewriting.kept);
  const std::string_view written = contents.substr(rewriting.kept);
  if (isWhole(written, rewriting)) return false;
  if (!isDictionary(std::string(kept).append(rewriting.before))) return false;
  return isMixture(written, rewriting) || !isDictionary(contents);
}

enum class Recovery { notNeeded, done, failed };

Recovery recover(const std::string& path, const Rewriting& rewriting) {
  if (!fileExists(path)) return Recovery::notNeeded;
  const Descriptor current = openRegularFile(path, O_RDONLY);
  const auto contents = current ? contentsOfFile(current.get(), mostBytes) : std::nullopt;
  if (!contents) return Recovery::failed;
  if (!wasCutOff(*contents, rewriting)) return Recovery::notNeeded;
  const Descriptor file = openRegularFile(path, O_RDWR);
  return file && takeBack(file.get(), rewriting) ? Recovery::done : Recovery::failed;
}

void removeRecord(const std::string& file) {
  const std::string record = recordPath(file);
  for (const std::string& path : {record, stagedPath(record)}) {
    if (isOwnFile(path)) ::unlink(path.c_str());
  }
}

// Returns the name of the file that a record belongs to; "" if the name is not that of a record.
std::string_view recordedName(std::string_view name) {
  const std::string staged = stagedPath(std::string(recordSuffix));
  for (const std::string_view suffix : {recordSuffix, std::string_view(staged)}) {
    if (name.starts_with('.') && name.ends_with(suffix) && name.size() > suffix.size() + 1) {
      return name.substr(1, name.size() - 1 - suffix.size());
    }
  }
  return {};
}

}  // namespace

bool rewriteFile(const std::string& path, std::string contents, std::string_view blank) {
  const Descriptor file = openRegularFile(path, O_RDWR);
  const auto before = file ? contentsOfFile(file.get(), mostBytes) : std::nullopt;
  if (!before || contents.size() > mostBytes || blank.empty()) return false;
  const std::size_t size = contents.size();
  while (contents.size() < before->size()) contents += blank;
  const std::size_t kept = std::min(keptOf(*before, contents), size);
  const Rewriting rewriting{kept, std::string_view(*before).substr(kept),
                            std::string_view(contents).substr(kept), size - kept};
  const std::string line = firstLineOf(rewriting);
  const std::size_t recordSize = line.size() + rewriting.before.size() + rewriting.filled.size();
  // Exceeding the limit would end the process.
  if (!mayHaveSize(std::max(recordSize, contents.size()))) return false;
  // Reserves space first: running out of it halfway would cost the contents of the file.
  const Room room = setRoomAside(file.get(), static_cast<off_t>(contents.size()));
  if (room == Room::missing) return false;
  const bool recorded = replaceFile(recordPath(path), {line, rewriting.before, rewriting.filled});
  const bool mayDoWithout = room == Room::setAside && !mayMakeFilesIn(directoryOf(path));
  if (!recorded && !mayDoWithout) return false;
  // Flushing the record took its time: others may have written meanwhile.
  if (!holds(file.get(), *before)) {
    removeRecord(path);
    return false;
  }
  // Writes over all of the old contents before it cuts any: the file is whole between two system
  // calls.
  if (!writeAt(file.get(), rewriting.kept, rewriting.filled)) {
    if (takeBack(file.get(), rewriting)) removeRecord(path);
    return false;
  }
  if (!cut(file.get(), size)) return false;
  removeRecord(path);
  return true;
}

bool recoverLockedFile(const std::string& path) {
  const std::string record = recordPath(path);
  if (!isOwnFile(record) && !isOwnFile(stagedPath(record))) return false;
  const auto contents = readRecord(record);
  const auto rewriting = contents ? recordedRewriting(*contents) : std::nullopt;
  const Recovery recovery = rewriting ? recover(path, *rewriting) : Recovery::notNeeded;
  if (recovery != Recovery::failed) removeRecord(path);
  return recovery == Recovery::done;
}

bool recoverFilesIn(const std::string& directory) {
  bool anyRecovered = false;
  for (const std::string& name :
       contentsOfDirectory(directory).value_or(std::vector<std::string>())) {
    const std::string_view recorded = recordedName(name);
    if (recorded.empty()) continue;
    const std::string path = appendPathComponent(directory, recorded);
    const auto lock = FileLock::acquire(path, std::chrono::milliseconds(0));
    if (!lock.isTaken() && recoverLockedFile(path)) anyRecovered = true;
  }
  return anyRecovered;
}

}  // namespace qbdkr
