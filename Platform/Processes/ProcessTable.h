#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <ClientComm/ProcessRecord.h>

namespace qbdkr {

// The process manager's number for a process.
struct ProcessSerialNumber {
  std::uint32_t highLongOfPSN;
  std::uint32_t lowLongOfPSN;
};

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

struct FetchedProcessTable {
  std::unique_ptr<ProcessRecord, Free> records;  // null if the table could not be read
  std::size_t count = 0;
  int error = 0;  // an errno value; 0 with records
};

// Copies the kernel's process table. Asks for its size, then for the table, and repeats both if the
// table grew in between, as often as that takes. Any thread.
[[nodiscard]] FetchedProcessTable fetchProcessTable();

// Returns the IDs of all processes, for much less than the table costs. Absent if the system does
// not tell. Any thread.
[[nodiscard]] std::optional<std::vector<pid_t>> fetchProcessIDs();

// Does the same with any query: a test can simulate a growing table.
template <class Query>
FetchedProcessTable fetchProcessTable(Query query) {
  for (;;) {
    std::size_t length = 0;
    if (const int error = query(nullptr, &length); error != 0) return {nullptr, 0, error};
    // malloc(), because callers get the records and free() them.
    std::unique_ptr<ProcessRecord, Free> records(static_cast<ProcessRecord*>(std::malloc(length)));
    if (!records) return {nullptr, 0, ENOMEM};
    const int error = query(records.get(), &length);
    if (error == 0) return {std::move(records), length / sizeof(ProcessRecord), 0};
    if (error != ENOMEM) return {nullptr, 0, error};
  }
}

}  // namespace qbdkr
