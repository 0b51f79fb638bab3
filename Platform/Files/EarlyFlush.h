#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <utility>

namespace qbdkr {

// Has the disk write what a large copy has made so far, while the rest is copied: the flush at its
// end has less to wait for then. Flushes again and again on a thread of its own, one flush at a
// time, and not at all for a small copy or if no thread can be made. For one thread.
class EarlyFlush {
 public:
  static constexpr std::uint64_t step = std::uint64_t{32} << 20U;  // bytes

  explicit EarlyFlush(std::function<void()> flush) : flush_(std::move(flush)) {}
  EarlyFlush(const EarlyFlush&) = delete;
  EarlyFlush& operator=(const EarlyFlush&) = delete;
  // Waits for a flush that is under way.
  ~EarlyFlush();

  // Counts bytes that were written. Does not wait.
  void add(std::uint64_t bytes);

 private:
  [[nodiscard]] bool isUnderWay() const;
  void begin();

  std::function<void()> flush_;
  std::uint64_t written_ = 0;  // since the last flush began
  std::future<void> underWay_;
};

}  // namespace qbdkr
