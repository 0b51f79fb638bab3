#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Export.h"
#include "Platform/PropertyList.h"
#include "Platform/Status.h"

namespace qbdkr {

// What the kernel's table holds of one process.
struct ProcessRecord {
  pid_t processID;
  uid_t effectiveUser;
  char command[17];  // the short command name, NUL-terminated
};

// Copies the kernel's process table. Without a buffer it stores the bytes that the table needs now;
// with one, whose size length says, it stores the bytes written. 0, or an errno value: ENOMEM when
// the table has grown beyond the buffer.
[[nodiscard]] QBDKR_EXPORT int queryProcessTable(ProcessRecord* buffer, std::size_t* length);

// How the process manager names a process.
struct ProcessSerialNumber {
  std::uint32_t highLongOfPSN;
  std::uint32_t lowLongOfPSN;
};

// The serial number of a process; procNotFound for what cannot be an id. On Linux every other one
// has a serial number, whether it runs an application or not.
[[nodiscard]] QBDKR_EXPORT OSErr getProcessForPID(pid_t processID, ProcessSerialNumber* number);

// The information dictionary of the application that a process runs; null when it is none.
[[nodiscard]] QBDKR_EXPORT std::shared_ptr<const PropertyList::Dictionary> copyProcessInformation(
    const ProcessSerialNumber& number);

}  // namespace qbdkr
