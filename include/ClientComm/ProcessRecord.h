#pragma once

#include <sys/types.h>

namespace qbdkr {

// Holds one record of the kernel's process table.
struct ProcessRecord {
  pid_t processID;      // of the system
  uid_t effectiveUser;  // its rights
  char command[17];     // the short command name, NUL-terminated
};

}  // namespace qbdkr
