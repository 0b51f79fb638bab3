#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "Platform/Base/Export.h"
#include "Platform/Base/Status.h"
#include "Platform/Processes/ProcessTable.h"
#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// Copies the kernel's process table. Without a buffer it stores the bytes that the table needs now;
// with one, whose size length says, it stores the bytes written. 0, or an errno value: ENOMEM when
// the table has grown beyond the buffer.
[[nodiscard]] QBDKR_EXPORT int queryProcessTable(ProcessRecord* buffer, std::size_t* length);

// The serial number of a process; procNotFound for what cannot be an id. On Linux every other one
// has a serial number, whether it runs an application or not.
[[nodiscard]] QBDKR_EXPORT OSErr getProcessForPID(pid_t processID, ProcessSerialNumber* number);

// The information dictionary of the application that a process runs; null when it is none.
[[nodiscard]] QBDKR_EXPORT std::shared_ptr<const PropertyList::Dictionary> copyProcessInformation(
    const ProcessSerialNumber& number);

}  // namespace qbdkr
