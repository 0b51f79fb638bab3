#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Descriptor.h"
#include "Platform/Bundles/EnclosingBundleLinux.h"
#include "Platform/Processes/ExecutablePlaceLinux.h"
#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {
namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// Processes may start before the caller comes back with a buffer.
constexpr std::size_t headroom = 16;

std::optional<pid_t> processID(std::string_view name) {
  pid_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size() || number <= 0) return std::nullopt;
  return number;
}

// Absent if the process has ended; on another failure errno says why.
std::optional<ProcessRecord> readRecord(int table, const char* name, pid_t processID) {
  const std::string path = std::string(name) + "/comm";
  const Descriptor file(openat(table, path.c_str(), O_RDONLY | O_CLOEXEC));
  // Asks the directory for the user: the files of a protected process belong to root.
  struct stat status {};
  if (!file || fstatat(table, name, &status, 0) != 0) return std::nullopt;
  ProcessRecord record{processID, status.st_uid, {}};
  const auto size = ::read(file.get(), record.command, sizeof record.command - 1);
  if (size <= 0) return std::nullopt;
  const auto used = static_cast<std::size_t>(size);
  if (record.command[used - 1] == '\n') record.command[used - 1] = '\0';
  return record;
}

}  // namespace

int queryProcessTable(ProcessRecord* buffer, std::size_t* length) {
  const Directory table(opendir("/proc"));
  if (!table) return errno;
  const std::size_t room = buffer == nullptr ? 0 : *length / sizeof(ProcessRecord);
  std::size_t count = 0;
  while (const dirent* entry = readdir(table.get())) {
    const auto id = processID(entry->d_name);
    if (!id) continue;
    if (buffer == nullptr) {
      ++count;
      continue;
    }
    errno = 0;
    const auto record = readRecord(dirfd(table.get()), entry->d_name, *id);
    // Out of descriptors does not mean that the process ended.
    if (!record && (errno == EMFILE || errno == ENFILE)) return errno;
    if (!record) continue;
    if (count == room) return ENOMEM;
    buffer[count++] = *record;
  }
  *length = (buffer == nullptr ? count + headroom : count) * sizeof(ProcessRecord);
  return 0;
}

std::optional<std::vector<pid_t>> allProcesses() {
  const Directory table(opendir("/proc"));
  if (!table) return std::nullopt;
  std::vector<pid_t> processes;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(table.get());
    if (entry == nullptr) break;
    if (const auto id = processID(entry->d_name)) processes.push_back(*id);
  }
  if (errno != 0) return std::nullopt;
  return processes;
}

OSErr getProcessForPID(pid_t processID, ProcessSerialNumber* number) {
  if (processID <= 0) return procNotFound;
  *number = {0, static_cast<std::uint32_t>(processID)};
  return noErr;
}

std::shared_ptr<const PropertyList::Dictionary> copyProcessInformation(
    const ProcessSerialNumber& number) {
  const auto processID = static_cast<pid_t>(number.lowLongOfPSN);
  if (number.highLongOfPSN != 0 || processID <= 0) return nullptr;
  const auto executable = executableOfProcess(processID);
  const auto bundle = executable ? bundleOfExecutable(*executable) : std::nullopt;
  return bundle ? bundle->info : nullptr;
}

std::optional<ProcessApplication> applicationOfProcess(pid_t processID) {
  const auto executable = executableOfProcess(processID);
  const auto bundle = executable ? bundleOfExecutable(*executable) : std::nullopt;
  if (!bundle || !isApplication(*bundle, *executable)) return std::nullopt;
  return ProcessApplication{bundle->path, bundle->info};
}

bool signalProcess(pid_t /*processID*/, const Descriptor& end, int signal) {
  return syscall(SYS_pidfd_send_signal, end.get(), signal, nullptr, 0) == 0;
}

bool runsReplacedFile(pid_t processID) {
  const auto executable = executableOfProcess(processID);
  struct stat running {};
  if (!executable || ::stat(linkOfExecutable(processID).c_str(), &running) != 0) return false;
  struct stat present {};
  return ::stat(placeOfExecutable(*executable).c_str(), &present) != 0 ||
         running.st_dev != present.st_dev || running.st_ino != present.st_ino;
}

Descriptor endOfProcess(pid_t processID) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, processID, 0)));
}

}  // namespace qbdkr
