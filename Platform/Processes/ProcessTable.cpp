#include "Platform/Processes/ProcessTable.h"

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

FetchedProcessTable fetchProcessTable() { return fetchProcessTable(queryProcessTable); }

std::optional<std::vector<pid_t>> fetchProcessIDs() { return allProcesses(); }

}  // namespace qbdkr
