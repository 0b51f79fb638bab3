#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <ctime>
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

// The kernel's information about a process that a descriptor refers to. The C library does not
// declare it yet.
struct ProcessInformation {
  static constexpr std::uint64_t exitStatus = 8;  // of the mask

  std::uint64_t mask = exitStatus;  // asks for a part; tells which are there
  std::uint64_t group = 0;
  std::array<std::uint32_t, 11> identities{};
  std::int32_t status = 0;
};
constexpr unsigned long getProcessInformation = _IOWR(0xFF, 11, ProcessInformation);
static_assert(sizeof(ProcessInformation) == 64);

// Returns the exit status of a process in the form of wait(). Absent with EAGAIN if nothing has
// taken it yet, or with another errno.
std::optional<int> exitStatusOf(const Descriptor& end) {
  ProcessInformation information;
  if (::ioctl(end.get(), getProcessInformation, &information) != 0) return std::nullopt;
  if ((information.mask & ProcessInformation::exitStatus) != 0) return information.status;
  errno = EAGAIN;
  return std::nullopt;
}

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

std::optional<ProcessApplication> ApplicationFinder::of(pid_t processID) {
  const auto executable = executableOfProcess(processID);
  const auto bundle = executable ? bundleOfExecutable(*executable, outsideBundles_) : std::nullopt;
  if (!bundle || !isApplication(*bundle, *executable)) return std::nullopt;
  return ProcessApplication{bundle->path, bundle->info};
}

std::optional<std::uint64_t> residentBytesOf(pid_t processID) {
  const std::string path = "/proc/" + std::to_string(processID) + "/statm";
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 256> buffer{};
  const auto size = file ? ::read(file.get(), buffer.data(), buffer.size()) : -1;
  if (size <= 0) return std::nullopt;
  // The second number counts the resident pages.
  const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
  const auto blank = text.find(' ');
  if (blank == std::string_view::npos) return std::nullopt;
  std::uint64_t pages = 0;
  const auto [end, error] = std::from_chars(&text[blank] + 1, text.data() + text.size(), pages);
  if (error != std::errc()) return std::nullopt;
  return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
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

// The 22nd field of the line is the time of the start, in ticks since the system's. The second one
// is the program's name in parentheses, which may contain any character.
std::optional<std::chrono::system_clock::time_point> startOfProcess(pid_t processID) {
  constexpr std::size_t longestLine = 4096;
  const Descriptor file(
      ::open(("/proc/" + std::to_string(processID) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, longestLine> buffer{};
  const ssize_t size = file ? ::read(file.get(), buffer.data(), buffer.size()) : -1;
  if (size <= 0) return std::nullopt;
  std::string_view line(buffer.data(), static_cast<std::size_t>(size));
  line.remove_prefix(std::min(line.rfind(')'), line.size()));
  constexpr int blanksBefore = 20;
  for (int i = 0; i < blanksBefore; ++i) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    line.remove_prefix(blank + 1);
  }
  long long ticks = 0;
  if (std::from_chars(line.data(), line.data() + line.size(), ticks).ec != std::errc()) {
    return std::nullopt;
  }
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  const long long ticksPerSecond = std::max(sysconf(_SC_CLK_TCK), 1L);
  const auto age = std::chrono::seconds(sinceBoot.tv_sec) +
                   std::chrono::nanoseconds(sinceBoot.tv_nsec) -
                   std::chrono::nanoseconds(ticks * (1'000'000'000 / ticksPerSecond));
  return std::chrono::system_clock::now() -
         std::chrono::duration_cast<std::chrono::system_clock::duration>(age);
}

std::string endingOf(const Descriptor& end) {
  auto status = exitStatusOf(end);
  if (!status && errno == EAGAIN) {
    // The system keeps the status from the moment at which the parent of the process has taken it.
    constexpr int patience = 100;  // milliseconds
    pollfd taken{end.get(), 0, 0};
    if (::poll(&taken, 1, patience) > 0) status = exitStatusOf(end);
  }
  if (!status) return "";
  if (WIFSIGNALED(*status)) return "signal " + std::to_string(WTERMSIG(*status));
  return "exit status " + std::to_string(WEXITSTATUS(*status));
}

}  // namespace qbdkr
