#include "Platform/Processes/ProcessTable.h"

#include "Platform/Processes/NativeProcesses.h"

namespace qbdkr {

FetchedProcessTable fetchProcessTable() { return fetchProcessTable(queryProcessTable); }

}  // namespace qbdkr
