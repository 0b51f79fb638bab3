#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "Platform/Base/Descriptor.h"
#include "Platform/Bundles/EnclosingBundleLinux.h"
#include "Platform/Files/Files.h"
#include "Platform/Workspace/DetachedProcessLinux.h"
#include "Platform/Workspace/LoaderOutputLinux.h"
#include "Platform/Workspace/NativeProgram.h"

namespace qbdkr {
namespace {

using Clock = std::chrono::steady_clock;
using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using DynamicEntry = ElfW(Dyn);

// A loader that is executed here is the system's own: a program may name any other.
constexpr std::array<std::string_view, 13> systemLoaders{"/lib64/ld-linux-x86-64.so.2",
                                                         "/lib/ld-linux-x86-64.so.2",
                                                         "/lib/ld-linux.so.2",
                                                         "/lib/ld-linux-aarch64.so.1",
                                                         "/lib/ld-linux-armhf.so.3",
                                                         "/lib/ld-linux.so.3",
                                                         "/lib/ld-linux-riscv64-lp64d.so.1",
                                                         "/lib64/ld64.so.2",
                                                         "/lib/ld64.so.1",
                                                         "/lib64/ld-linux-loongarch-lp64d.so.1",
                                                         "/lib/ld-musl-x86_64.so.1",
                                                         "/lib/ld-musl-aarch64.so.1",
                                                         "/lib/ld-musl-riscv64.so.1"};

template <class Value>
std::optional<Value> readAt(int file, std::uint64_t offset) {
  Value value{};
  const auto size = ::pread(file, &value, sizeof value, static_cast<off_t>(offset));
  if (size != static_cast<ssize_t>(sizeof value)) return std::nullopt;
  return value;
}

Descriptor openProgram(const std::string& path) {
  return Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
}

bool isOwnClass(const Header& header) {
  constexpr unsigned char ownClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
  constexpr unsigned char ownOrder =
      __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;
  return header.e_ident[EI_CLASS] == ownClass && header.e_ident[EI_DATA] == ownOrder;
}

std::optional<Header> ownHeader() {
  const Descriptor file = openProgram("/proc/self/exe");
  return file ? readAt<Header>(file.get(), 0) : std::nullopt;
}

std::string nameOfProcessor(unsigned machine) {
  switch (machine) {
    case EM_386:
      return "i386";
    case EM_X86_64:
      return "x86-64";
    case EM_ARM:
      return "ARM";
    case EM_AARCH64:
      return "AArch64";
    case EM_PPC64:
      return "PowerPC 64";
    case EM_S390:
      return "s390";
    case EM_RISCV:
      return "RISC-V";
    default:
      return "ELF number " + std::to_string(machine);
  }
}

// A processor of 64 bits may run the programs of its predecessor.
bool mayRun(unsigned own, unsigned machine) {
  return own == machine || (own == EM_X86_64 && machine == EM_386) ||
         (own == EM_AARCH64 && machine == EM_ARM);
}

// The parts of a program that say how it is loaded. Nothing in the file is trusted.
class LoadedProgram {
 public:
  static std::optional<LoadedProgram> of(int file) {
    const auto header = readAt<Header>(file, 0);
    if (!header || !isOwnClass(*header) || header->e_phentsize != sizeof(Segment) ||
        header->e_phnum > mostSegments) {
      return std::nullopt;
    }
    LoadedProgram program(file);
    for (std::uint64_t i = 0; i < header->e_phnum; ++i) {
      const auto segment = readAt<Segment>(file, header->e_phoff + i * sizeof(Segment));
      if (!segment) return std::nullopt;
      program.segments_.push_back(*segment);
    }
    return program;
  }

  // Returns the path of the loader; empty for a program that needs none.
  [[nodiscard]] std::string loader() const {
    const auto interpreter = std::ranges::find(segments_, Word{PT_INTERP}, &Segment::p_type);
    if (interpreter == segments_.end()) return "";
    std::array<char, 256> path{};
    const auto size = std::min<std::uint64_t>(interpreter->p_filesz, path.size() - 1);
    if (::pread(file_, path.data(), size, static_cast<off_t>(interpreter->p_offset)) < 0) return "";
    return path.data();
  }

  // Tells whether the loader executes nothing of this program or of libraries that it names, when
  // it only lists them. It does execute auditors. In doubt, returns false.
  [[nodiscard]] bool isSafeToList() const {
    const auto isDynamic = [](const Segment& segment) { return segment.p_type == PT_DYNAMIC; };
    if (std::ranges::count_if(segments_, isDynamic) != 1) return false;
    const Segment& dynamic = *std::ranges::find_if(segments_, isDynamic);
    if (!isLoadedFromItsPlace(dynamic)) return false;
    const std::uint64_t count =
        std::min<std::uint64_t>(dynamic.p_filesz / sizeof(DynamicEntry), mostEntries);
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto entry = readAt<DynamicEntry>(file_, dynamic.p_offset + i * sizeof(DynamicEntry));
      if (!entry || entry->d_tag == DT_AUDIT || entry->d_tag == DT_DEPAUDIT) return false;
      if (entry->d_tag == DT_NULL) return true;
    }
    return false;
  }

 private:
  using Word = decltype(Segment::p_type);
  static constexpr unsigned mostSegments = 128;
  static constexpr std::uint64_t mostEntries = 4096;

  explicit LoadedProgram(int file) : file_(file) {}

  // The loader reads the memory, and this class the file: exactly one segment may lead from one to
  // the other.
  [[nodiscard]] bool isLoadedFromItsPlace(const Segment& dynamic) const {
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    std::size_t around = 0;
    bool isItsPlace = false;
    for (const Segment& segment : segments_) {
      if (segment.p_type != PT_LOAD) continue;
      const std::uint64_t begin = segment.p_vaddr / page * page;
      const std::uint64_t end = (segment.p_vaddr + segment.p_memsz + page - 1) / page * page;
      if (end < begin || dynamic.p_vaddr + dynamic.p_filesz < dynamic.p_vaddr) return false;
      if (dynamic.p_vaddr + dynamic.p_filesz <= begin || dynamic.p_vaddr >= end) continue;
      ++around;
      const std::uint64_t distance = dynamic.p_vaddr - segment.p_vaddr;
      isItsPlace = dynamic.p_vaddr >= segment.p_vaddr && distance <= segment.p_filesz &&
                   dynamic.p_filesz <= segment.p_filesz - distance &&
                   segment.p_offset + distance == dynamic.p_offset;
    }
    return around == 1 && isItsPlace;
  }

  int file_;
  std::vector<Segment> segments_;
};

// Whether a loader lists the libraries of a program in place of executing it.
enum class Tracing { off, on };

// Runs a command, and returns what it writes; absent if it does not end in time, or writes too
// much.
std::optional<std::string> outputOfCommand(std::vector<std::string> command, Tracing tracing,
                                           Clock::time_point deadline) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  const Descriptor output(ends[0]);
  StandardStreams streams{Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)),
                          Descriptor(ends[1]), Descriptor()};
  // The other variables of a loader can make it execute more.
  std::vector<std::string> environment;
  if (const char* path = std::getenv("LD_LIBRARY_PATH")) {
    environment.push_back("LD_LIBRARY_PATH=" + std::string(path));
  }
  if (tracing == Tracing::on) environment.emplace_back("LD_TRACE_LOADED_OBJECTS=1");
  const auto process =
      startDetached(std::move(command), std::move(environment), std::move(streams));
  if (!process) return std::nullopt;
  constexpr std::size_t mostOutput = std::size_t{256} << 10;
  std::string text;
  bool isWhole = false;
  while (!isWhole && text.size() < mostOutput) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd event{output.get(), POLLIN, 0};
    const int ready = ::poll(&event, 1, static_cast<int>(std::max<Clock::rep>(left.count(), 0)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) break;
    std::array<char, 4096> buffer{};
    const auto size = ::read(output.get(), buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) break;
    isWhole = size == 0;
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
  if (!isWhole) ::syscall(SYS_pidfd_send_signal, process->ended.get(), SIGKILL, nullptr, 0);
  return isWhole ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace

ProgramReport reportOnNativeProgram(const std::string& path, std::string_view bytes) {
  ProgramReport report;
  if (!bytes.starts_with(ELFMAG) || bytes.size() < sizeof(Elf32_Ehdr)) {
    report.fault = ProgramFault::unknownFormat;
    return report;
  }
  Header header{};
  std::memcpy(&header, bytes.data(), std::min(bytes.size(), sizeof header));
  const auto own = ownHeader();
  const bool isSwapped = own && header.e_ident[EI_DATA] != own->e_ident[EI_DATA];
  const unsigned machine = isSwapped ? __builtin_bswap16(header.e_machine) : header.e_machine;
  if (own && (isSwapped || !mayRun(own->e_machine, machine))) {
    report.fault = ProgramFault::otherProcessor;
    report.detail = nameOfProcessor(machine);
    return report;
  }
  if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
    report.fault = ProgramFault::unknownFormat;
    return report;
  }
  const Descriptor file = openProgram(path);
  const auto program = file ? LoadedProgram::of(file.get()) : std::nullopt;
  const std::string loader = program ? program->loader() : "";
  if (!loader.empty() && !isRegularFile(loader)) {
    report.fault = ProgramFault::missingLoader;
    report.detail = loader;
  }
  return report;
}

LibraryReport nativeLibrariesOf(const std::string& path, std::chrono::milliseconds patience) {
  const Descriptor file = openProgram(path);
  const auto program = file ? LoadedProgram::of(file.get()) : std::nullopt;
  if (!path.starts_with('/') || !program || !program->isSafeToList()) return {};
  const std::string loader = program->loader();
  if (std::ranges::find(systemLoaders, loader) == systemLoaders.end()) return {};
  const auto deadline = Clock::now() + patience;
  const auto output = outputOfCommand({loader, "--list", path}, Tracing::off, deadline);
  if (!output) return {};
  auto report = librariesInLoaderOutput(*output);
  // So asked, this loader stops at the first missing library. It names them all when it traces, but
  // a loader that does not know how would execute the program.
  const auto version = report.missing.empty()
                           ? std::nullopt
                           : outputOfCommand({loader, "--version"}, Tracing::off, deadline);
  if (!version || !version->starts_with("ld.so (") ||
      version->find("Free Software Foundation") == std::string::npos) {
    return report;
  }
  const auto traced = outputOfCommand({loader, path}, Tracing::on, deadline);
  auto all = traced ? librariesInLoaderOutput(*traced) : LibraryReport();
  return all.missing.size() > report.missing.size() ? all : report;
}

std::string nativeProgramFolderOf(const std::string& bundlePath) {
  return appendPathComponent(bundlePath, programFolder);
}

}  // namespace qbdkr
