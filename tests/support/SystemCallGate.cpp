#include "support/SystemCallGate.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qbdkr::test {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The ways in which a call names its target.
enum class Target {
  path,        // a path
  pathAt,      // a directory's descriptor, and a path from there
  descriptor,  // an open file
};

enum class Effect { other, needsSpace, write, copy, flush };

// Selects some of the calls of a number: those with one of these bits in an argument, or with
// exactly this value.
struct Condition {
  enum class Test { none, anyBit, equal };
  Test test = Test::none;
  unsigned argument = 0;
  std::uint32_t value = 0;
};

struct Row {
  long number;
  const char* name;
  Target target;
  unsigned argument;  // the first that belongs to the target
  Effect effect = Effect::other;
  Condition condition = {};
};

constexpr std::uint32_t changingFlags = O_CREAT | O_TRUNC | O_WRONLY | O_RDWR;
constexpr Condition opensToChange(unsigned argument) {
  return {Condition::Test::anyBit, argument, changingFlags};
}

// For calls with two paths the target is the second one, at which the new entry appears.
constexpr Row rows[] = {
#ifdef SYS_open  // older architectures have these as well
    {SYS_open, "open", Target::path, 0, Effect::needsSpace, opensToChange(1)},
    {SYS_creat, "creat", Target::path, 0, Effect::needsSpace},
    {SYS_mkdir, "mkdir", Target::path, 0, Effect::needsSpace},
    {SYS_mknod, "mknod", Target::path, 0, Effect::needsSpace},
    {SYS_link, "link", Target::path, 1, Effect::needsSpace},
    {SYS_symlink, "symlink", Target::path, 1, Effect::needsSpace},
    {SYS_rename, "rename", Target::path, 1},
    {SYS_unlink, "unlink", Target::path, 0},
    {SYS_rmdir, "rmdir", Target::path, 0},
    {SYS_chmod, "chmod", Target::path, 0},
    {SYS_chown, "chown", Target::path, 0},
    {SYS_lchown, "lchown", Target::path, 0},
    {SYS_utime, "utime", Target::path, 0},
    {SYS_utimes, "utimes", Target::path, 0},
    {SYS_futimesat, "futimesat", Target::pathAt, 0},
#endif
#ifdef SYS_renameat
    {SYS_renameat, "renameat", Target::pathAt, 2},
#endif
    {SYS_openat, "openat", Target::pathAt, 0, Effect::needsSpace, opensToChange(2)},
    {SYS_openat2, "openat2", Target::pathAt, 0, Effect::needsSpace},
    {SYS_mkdirat, "mkdirat", Target::pathAt, 0, Effect::needsSpace},
    {SYS_mknodat, "mknodat", Target::pathAt, 0, Effect::needsSpace},
    {SYS_linkat, "linkat", Target::pathAt, 2, Effect::needsSpace},
    {SYS_symlinkat, "symlinkat", Target::pathAt, 1, Effect::needsSpace},
    {SYS_renameat2, "renameat2", Target::pathAt, 2},
    {SYS_unlinkat, "unlinkat", Target::pathAt, 0},
    {SYS_fchmodat, "fchmodat", Target::pathAt, 0},
    {SYS_fchownat, "fchownat", Target::pathAt, 0},
    {SYS_utimensat, "utimensat", Target::pathAt, 0},
    {SYS_truncate, "truncate", Target::path, 0, Effect::needsSpace},
    {SYS_setxattr, "setxattr", Target::path, 0, Effect::needsSpace},
    {SYS_lsetxattr, "lsetxattr", Target::path, 0, Effect::needsSpace},
    {SYS_removexattr, "removexattr", Target::path, 0},
    {SYS_lremovexattr, "lremovexattr", Target::path, 0},
    {SYS_fsetxattr, "fsetxattr", Target::descriptor, 0, Effect::needsSpace},
    {SYS_fremovexattr, "fremovexattr", Target::descriptor, 0},
    {SYS_write, "write", Target::descriptor, 0, Effect::write},
    {SYS_pwrite64, "pwrite64", Target::descriptor, 0, Effect::write},
    {SYS_writev, "writev", Target::descriptor, 0, Effect::needsSpace},
    {SYS_pwritev, "pwritev", Target::descriptor, 0, Effect::needsSpace},
    {SYS_pwritev2, "pwritev2", Target::descriptor, 0, Effect::needsSpace},
    {SYS_sendfile, "sendfile", Target::descriptor, 0, Effect::copy},
    {SYS_splice, "splice", Target::descriptor, 2, Effect::needsSpace},
    {SYS_copy_file_range, "copy_file_range", Target::descriptor, 2, Effect::copy},
    {SYS_ioctl,
     "FICLONE",
     Target::descriptor,
     0,
     Effect::needsSpace,
     {Condition::Test::equal, 1, FICLONE}},
    {SYS_ioctl,
     "FICLONERANGE",
     Target::descriptor,
     0,
     Effect::needsSpace,
     {Condition::Test::equal, 1, FICLONERANGE}},
    {SYS_ioctl,
     "FS_IOC_SETFLAGS",
     Target::descriptor,
     0,
     Effect::other,
     {Condition::Test::equal, 1, static_cast<std::uint32_t>(FS_IOC_SETFLAGS)}},
    {SYS_ftruncate, "ftruncate", Target::descriptor, 0},
    {SYS_fallocate, "fallocate", Target::descriptor, 0, Effect::needsSpace},
    {SYS_fchmod, "fchmod", Target::descriptor, 0},
    {SYS_fchown, "fchown", Target::descriptor, 0},
    {SYS_fsync, "fsync", Target::descriptor, 0, Effect::flush},
    {SYS_fdatasync, "fdatasync", Target::descriptor, 0, Effect::flush},
    {SYS_syncfs, "syncfs", Target::descriptor, 0, Effect::flush},
    {SYS_sync_file_range, "sync_file_range", Target::descriptor, 0, Effect::flush},
};

std::uint32_t lowHalfOf(unsigned argument) {
  constexpr std::size_t half = sizeof(std::uint32_t);
  const auto offset = offsetof(seccomp_data, args) + argument * sizeof(std::uint64_t);
  return static_cast<std::uint32_t>(std::endian::native == std::endian::big ? offset + half
                                                                            : offset);
}

sock_filter statement(unsigned code, std::uint32_t value) {
  return BPF_STMT(static_cast<std::uint16_t>(code), value);
}

// Goes on with the next statement if the comparison holds, else skips that many.
sock_filter unless(unsigned comparison, std::uint32_t value, std::uint8_t skip) {
  return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | BPF_K | comparison), value, 0, skip);
}

// Makes the kernel select the calls: all others cost next to nothing.
std::vector<sock_filter> filterProgram() {
  const auto number = statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
  const auto ask = statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF);
  std::vector<sock_filter> program;
  for (const Row& row : rows) {
    const bool always = row.condition.test == Condition::Test::none;
    program.push_back(number);
    program.push_back(unless(BPF_JEQ, static_cast<std::uint32_t>(row.number), always ? 1 : 3));
    if (!always) {
      const bool equal = row.condition.test == Condition::Test::equal;
      program.push_back(statement(BPF_LD | BPF_W | BPF_ABS, lowHalfOf(row.condition.argument)));
      program.push_back(unless(equal ? BPF_JEQ : BPF_JSET, row.condition.value, 1));
    }
    program.push_back(ask);
  }
  program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return program;
}

bool holds(const Condition& condition, const seccomp_data& call) {
  const auto argument = static_cast<std::uint32_t>(call.args[condition.argument]);
  if (condition.test == Condition::Test::equal) return argument == condition.value;
  return condition.test == Condition::Test::none || (argument & condition.value) != 0;
}

const Row& rowOf(const seccomp_data& call) {
  const auto row = std::ranges::find_if(rows, [&](const Row& candidate) {
    return candidate.number == call.nr && holds(candidate.condition, call);
  });
  if (row == std::end(rows)) throw std::logic_error("a call that was not asked for");
  return *row;
}

Descriptor memoryOf(pid_t process) {
  return Descriptor(
      ::open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDWR | O_CLOEXEC));
}

// Returns bytes in the memory of a stopped process, or fewer at the end of its memory.
std::string memoryOf(pid_t process, std::uint64_t address, std::size_t size) {
  const Descriptor memory = memoryOf(process);
  std::string bytes(size, '\0');
  const auto got = ::pread(memory.get(), bytes.data(), size, static_cast<off_t>(address));
  if (got < 0) fail("memory of the program");
  bytes.resize(static_cast<std::size_t>(got));
  return bytes;
}

std::string pathIn(pid_t process, std::uint64_t address) {
  if (address == 0) return "";  // the call names the descriptor itself
  const std::string bytes = memoryOf(process, address, PATH_MAX);
  return bytes.substr(0, bytes.find('\0'));
}

fs::path ofDescriptor(pid_t process, std::uint64_t descriptor) {
  const auto number = static_cast<int>(descriptor);
  const std::string folder = "/proc/" + std::to_string(process);
  std::error_code closed;
  return fs::read_symlink(
      number == AT_FDCWD ? folder + "/cwd" : folder + "/fd/" + std::to_string(number), closed);
}

fs::path targetOf(const Row& row, const seccomp_notif& asked) {
  const auto process = static_cast<pid_t>(asked.pid);
  const auto& arguments = asked.data.args;
  if (row.target == Target::descriptor) return ofDescriptor(process, arguments[row.argument]);
  if (row.target == Target::path) {
    return ofDescriptor(process, static_cast<std::uint64_t>(AT_FDCWD)) /
           pathIn(process, arguments[row.argument]);
  }
  const auto path = pathIn(process, arguments[row.argument + 1]);
  const auto directory = ofDescriptor(process, arguments[row.argument]);
  return path.empty() ? directory : directory / path;
}

// Installs the filter in the child, and hands its listener to the parent. Made before the fork,
// because the child may call only async-signal-safe functions.
class FilterInstallation {
 public:
  FilterInstallation() : program_(filterProgram()) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) fail("socketpair");
    parentEnd_ = Descriptor(ends[0]);
    childEnd_ = Descriptor(ends[1]);
  }

  void install() const {
    const sock_fprog program{static_cast<unsigned short>(program_.size()),
                             const_cast<sock_filter*>(program_.data())};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const auto listener =
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program);
    if (listener >= 0 && handOver(static_cast<int>(listener))) return;
    const int error = errno;
    [[maybe_unused]] const auto sent = ::send(childEnd_.get(), &error, sizeof error, 0);
    _exit(126);
  }

  // Receives the listener in the parent.
  [[nodiscard]] Descriptor listener() {
    childEnd_ = Descriptor();
    Message message;
    if (recvmsg(parentEnd_.get(), &message.header, MSG_CMSG_CLOEXEC) <= 0) {
      throw std::runtime_error("the program ended before its gate was there");
    }
    errno = message.error;
    if (message.error != 0) fail("no gate for system calls on this system");
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message.header)), sizeof descriptor);
    return Descriptor(descriptor);
  }

 private:
  struct Message {
    Message() {
      header.msg_iov = &part;
      header.msg_iovlen = 1;
      header.msg_control = control.data();
      header.msg_controllen = control.size();
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    ~Message() = default;

    int error = 0;
    iovec part{&error, sizeof error};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};
  };

  [[nodiscard]] bool handOver(int listener) const {
    Message message;
    cmsghdr* rights = CMSG_FIRSTHDR(&message.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof listener);
    std::memcpy(CMSG_DATA(rights), &listener, sizeof listener);
    const bool sent = ::sendmsg(childEnd_.get(), &message.header, 0) >= 0;
    ::close(listener);
    return sent;
  }

  std::vector<sock_filter> program_;
  Descriptor parentEnd_;
  Descriptor childEnd_;
};

// Holds an offset that a call of the program reads and writes, if it names one.
class OffsetOf {
 public:
  OffsetOf(pid_t process, std::uint64_t address) : memory_(memoryOf(process)), address_(address) {
    if (address_ == 0) return;
    if (::pread(memory_.get(), &value_, sizeof value_, static_cast<off_t>(address_)) < 0) {
      fail("memory of the program");
    }
  }
  OffsetOf(const OffsetOf&) = delete;
  OffsetOf& operator=(const OffsetOf&) = delete;
  ~OffsetOf() {
    if (address_ == 0) return;
    [[maybe_unused]] const auto written =
        ::pwrite(memory_.get(), &value_, sizeof value_, static_cast<off_t>(address_));
  }

  [[nodiscard]] off_t* get() { return address_ == 0 ? nullptr : &value_; }

 private:
  Descriptor memory_;
  std::uint64_t address_;
  off_t value_ = 0;
};

// Supervises one run of a program.
class Supervision {
 public:
  Supervision(ChildProcess& program, Descriptor listener, const fs::path& directory,
              const Fault& fault)
      : program_(program), listener_(std::move(listener)), directory_(directory), fault_(fault) {}

  std::vector<GatedCall> untilItsEnd() {
    while (waitForCall()) answer();
    return std::move(calls_);
  }

 private:
  // Returns false at the end of the program.
  bool waitForCall() const {
    pollfd event{listener_.get(), POLLIN, 0};
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
    int ready = 0;
    do {
      ready = ::poll(&event, 1, static_cast<int>(limit));
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) throw std::runtime_error("the program neither went on nor ended");
    return (event.revents & POLLIN) != 0;
  }

  void answer() {
    seccomp_notif asked{};
    if (::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;  // it ended
    const Row& row = rowOf(asked.data);
    const fs::path target = targetOf(row, asked);
    if (!isBelow(target)) return goOn(asked);
    const bool writes = row.effect == Effect::write || row.effect == Effect::copy;
    calls_.push_back({row.name, target, writes, writes || row.effect == Effect::needsSpace});
    if (calls_.size() == fault_.at) return applyFault(row, asked);
    if (isFull_ && calls_.back().needsSpace) return reply(asked, -ENOSPC, 0);
    if (row.effect == Effect::flush) return reply(asked, 0, 0);
    goOn(asked);
  }

  [[nodiscard]] bool isBelow(const fs::path& path) const {
    return path == directory_ || path.string().starts_with(directory_.string() + '/');
  }

  void applyFault(const Row& row, const seccomp_notif& asked) {
    switch (fault_.kind) {
      case Fault::Kind::none:
        return goOn(asked);
      case Fault::Kind::kill:
        return program_.kill();
      case Fault::Kind::fail:
        return reply(asked, -fault_.error, 0);
      case Fault::Kind::killHalfWay:
        doHalf(row, asked);
        return program_.kill();
      case Fault::Kind::fillHalfWay:
        isFull_ = true;
        return reply(asked, 0, doHalf(row, asked));
    }
  }

  // Does half of a call for the program, on the program's open files.
  std::int64_t doHalf(const Row& row, const seccomp_notif& asked) const {
    const auto done = row.effect == Effect::copy ? copyHalf(asked) : writeHalf(asked);
    if (done < 0) fail("half of a call");
    return done;
  }

  [[nodiscard]] Descriptor descriptorOf(std::uint64_t number) const {
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, program_.processID(), 0)));
    return Descriptor(
        static_cast<int>(syscall(SYS_pidfd_getfd, process.get(), static_cast<int>(number), 0)));
  }

  [[nodiscard]] std::int64_t writeHalf(const seccomp_notif& asked) const {
    const auto& call = asked.data;
    const Descriptor file = descriptorOf(call.args[0]);
    const auto bytes =
        memoryOf(static_cast<pid_t>(asked.pid), call.args[1], (call.args[2] + 1) / 2);
    if (call.nr == SYS_write) return ::write(file.get(), bytes.data(), bytes.size());
    return ::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(call.args[3]));
  }

  [[nodiscard]] std::int64_t copyHalf(const seccomp_notif& asked) const {
    const auto process = static_cast<pid_t>(asked.pid);
    const auto& call = asked.data;
    const bool sends = call.nr == SYS_sendfile;
    const Descriptor from = descriptorOf(call.args[sends ? 1 : 0]);
    const Descriptor to = descriptorOf(call.args[sends ? 0 : 2]);
    OffsetOf fromOffset(process, sends ? call.args[2] : call.args[1]);
    OffsetOf toOffset(process, sends ? 0 : call.args[3]);
    const off_t start =
        fromOffset.get() != nullptr ? *fromOffset.get() : ::lseek(from.get(), 0, SEEK_CUR);
    struct stat status {};
    if (::fstat(from.get(), &status) != 0 || start < 0) return -1;
    const auto rest = static_cast<std::uint64_t>(std::max<off_t>(status.st_size - start, 0));
    const auto half = (std::min<std::uint64_t>(rest, call.args[sends ? 3 : 4]) + 1) / 2;
    return sends
               ? ::sendfile(to.get(), from.get(), fromOffset.get(), half)
               : ::copy_file_range(from.get(), fromOffset.get(), to.get(), toOffset.get(), half, 0);
  }

  void goOn(const seccomp_notif& asked) const {
    respond({asked.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE});
  }

  void reply(const seccomp_notif& asked, int error, std::int64_t value) const {
    respond({asked.id, value, error, 0});
  }

  void respond(seccomp_notif_resp response) const {
    const int result = ::ioctl(listener_.get(), SECCOMP_IOCTL_NOTIF_SEND, &response);
    if (result != 0 && errno != ENOENT) fail("answer to the program");
  }

  ChildProcess& program_;
  Descriptor listener_;
  const fs::path& directory_;
  const Fault& fault_;
  std::vector<GatedCall> calls_;
  bool isFull_ = false;
};

}  // namespace

SystemCallGate::SystemCallGate(const fs::path& directory) : directory_(fs::canonical(directory)) {}

GatedRun SystemCallGate::run(const std::vector<std::string>& command, SpawnOptions options,
                             const Fault& fault) const {
  FilterInstallation installation;
  options.beforeExec = [&installation] { installation.install(); };
  ChildProcess program(command, options);
  program.closeInput();
  GatedRun run;
  run.calls = Supervision(program, installation.listener(), directory_, fault).untilItsEnd();
  run.status = program.wait();
  run.log = program.logToItsEnd();
  return run;
}

}  // namespace qbdkr::test
