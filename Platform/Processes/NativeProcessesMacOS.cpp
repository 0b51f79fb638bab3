#include <ApplicationServices/ApplicationServices.h>
#include <signal.h>
#include <sys/event.h>
#include <sys/sysctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Platform/Processes/NativeProcesses.h"
#include "Platform/PropertyLists/PropertyListConversionMacOS.h"

namespace qbdkr {
namespace {

using KernelRecord = kinfo_proc;

// Stores in length how many bytes the kernel has or, with a buffer of that length, has written.
int readKernelTable(KernelRecord* records, std::size_t* length) {
  std::array<int, 4> name{CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
  constexpr unsigned int nameLength = 3;  // the last one belongs to other queries
  return ::sysctl(name.data(), nameLength, records, length, nullptr, 0) == 0 ? 0 : errno;
}

ProcessRecord recordFrom(const KernelRecord& kernel) {
  ProcessRecord record{kernel.kp_proc.p_pid, kernel.kp_eproc.e_ucred.cr_uid, {}};
  static_assert(sizeof record.command == sizeof kernel.kp_proc.p_comm);
  std::copy_n(std::begin(kernel.kp_proc.p_comm), sizeof record.command - 1, record.command);
  return record;
}

// The Process Manager's calls are deprecated since macOS 10.9 in favour of NSRunningApplication,
// which is Objective-C, belongs to AppKit and must be asked on a thread with a run loop to be up to
// date. These need neither, and answer for the very serial number that an event carries.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

::OSErr serialNumberOf(pid_t processID, ::ProcessSerialNumber* number) {
  return static_cast<::OSErr>(::GetProcessForPID(processID, number));
}

CFRef<CFDictionaryRef> copyInformation(const ::ProcessSerialNumber& number) {
  constexpr auto all = static_cast<UInt32>(kProcessDictionaryIncludeAllInformationMask);
  return CFRef<CFDictionaryRef>(::ProcessInformationCopyDictionary(&number, all));
}

#pragma GCC diagnostic pop

}  // namespace

int queryProcessTable(ProcessRecord* buffer, std::size_t* length) {
  if (buffer == nullptr) {
    std::size_t needed = 0;
    const int error = readKernelTable(nullptr, &needed);
    if (error == 0) *length = needed / sizeof(KernelRecord) * sizeof(ProcessRecord);
    return error;
  }
  const std::size_t room = *length / sizeof(ProcessRecord);
  const std::unique_ptr<KernelRecord[]> records(new (std::nothrow) KernelRecord[room]);
  if (!records) return EAGAIN;  // not ENOMEM, which says that the table has grown
  std::size_t written = room * sizeof(KernelRecord);
  if (const int error = readKernelTable(records.get(), &written); error != 0) return error;
  const std::size_t count = std::min(written / sizeof(KernelRecord), room);
  std::ranges::transform(std::span(records.get(), count), buffer, recordFrom);
  *length = count * sizeof(ProcessRecord);
  return 0;
}

std::optional<std::vector<pid_t>> allProcesses() {
  const auto table = fetchProcessTable();
  if (!table.records) return std::nullopt;
  std::vector<pid_t> processes(table.count);
  std::ranges::transform(std::span(table.records.get(), table.count), processes.begin(),
                         &ProcessRecord::processID);
  return processes;
}

OSErr getProcessForPID(pid_t processID, ProcessSerialNumber* number) {
  if (processID <= 0) return procNotFound;
  ::ProcessSerialNumber found{};
  const OSErr status = serialNumberOf(processID, &found);
  if (status == noErr) *number = {found.highLongOfPSN, found.lowLongOfPSN};
  return status;
}

std::shared_ptr<const PropertyList::Dictionary> copyProcessInformation(
    const ProcessSerialNumber& number) {
  const auto information = copyInformation({number.highLongOfPSN, number.lowLongOfPSN});
  auto dictionary = dictionaryFrom(information.get());
  if (!dictionary) return nullptr;
  return std::make_shared<const PropertyList::Dictionary>(*std::move(dictionary));
}

// The Process Manager knows applications alone, and says where their bundles lie.
std::optional<ProcessApplication> ApplicationFinder::of(pid_t processID) {
  ProcessSerialNumber number{};
  if (getProcessForPID(processID, &number) != noErr) return std::nullopt;
  auto info = copyProcessInformation(number);
  if (!info) return std::nullopt;
  auto path = info->text("BundlePath").value_or("");
  return ProcessApplication{std::move(path), std::move(info)};
}

std::optional<std::uint64_t> residentBytesOf(pid_t /*processID*/) { return std::nullopt; }

bool signalProcess(pid_t processID, const Descriptor& /*end*/, int signal) {
  return ::kill(processID, signal) == 0;
}

bool runsReplacedFile(pid_t /*processID*/) { return false; }

Descriptor endOfProcess(pid_t processID) {
  Descriptor queue(::kqueue());
  struct kevent exit {};
  EV_SET(&exit, static_cast<uintptr_t>(processID), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  if (!queue || ::kevent(queue.get(), &exit, 1, nullptr, 0, nullptr) != 0) return Descriptor();
  return queue;
}

std::optional<std::chrono::system_clock::time_point> startOfProcess(pid_t /*processID*/) {
  return std::nullopt;
}

std::string endingOf(const Descriptor& /*end*/) { return ""; }

}  // namespace qbdkr
