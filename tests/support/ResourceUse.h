#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <thread>

#include "Platform/Base/Descriptor.h"

namespace qbdkr::test {

// The resources of a process at one moment; 0 if it has ended. Memory is in kilobytes: its share of
// all pages, and the pages of its own that no file has.
struct ResourceFigures {
  std::size_t share = 0;
  std::size_t anonymous = 0;
  std::size_t threads = 0;
  std::size_t descriptors = 0;
};
ResourceFigures resourceFigures(pid_t process);

// Watches the resources of a process from construction on. The kernel tells the memory peak.
// Threads and descriptors are counted every few milliseconds.
class ResourceUse {
 public:
  explicit ResourceUse(pid_t process);
  ResourceUse(const ResourceUse&) = delete;
  ResourceUse& operator=(const ResourceUse&) = delete;
  ~ResourceUse();

  [[nodiscard]] std::size_t peakMegabytes() const;  // resident, since the process started
  [[nodiscard]] std::size_t megabytes() const;      // resident now
  [[nodiscard]] std::size_t threads() const;        // now
  [[nodiscard]] std::size_t descriptors() const;    // now
  [[nodiscard]] std::size_t mostThreads() const { return mostThreads_; }
  [[nodiscard]] std::size_t mostDescriptors() const { return mostDescriptors_; }

  // Fails the test unless the process stayed within what any storm may cost a host: 24 MB, 16
  // threads and 64 descriptors. Memory does not count in a build with a sanitizer, which needs many
  // times as much for itself.
  void expectModest() const;

 private:
  void sample();

  pid_t process_;
  std::atomic<std::size_t> mostThreads_{0};
  std::atomic<std::size_t> mostDescriptors_{0};
  Descriptor stop_;
  std::thread sampler_;
};

}  // namespace qbdkr::test
