#pragma once

// Of the Objective-C runtime, in whose C headers they are missing:
// https://clang.llvm.org/docs/AutomaticReferenceCounting.html#runtime-support
extern "C" {
void* objc_autoreleasePoolPush(void);
void objc_autoreleasePoolPop(void* pool);
}

namespace qbdkr {

// Releases at its end what the system's calls have autoreleased on this thread since its beginning.
// A loop of our own needs one for each round, or that grows until the thread ends.
class AutoreleasePool {
 public:
  AutoreleasePool() : pool_(objc_autoreleasePoolPush()) {}
  AutoreleasePool(const AutoreleasePool&) = delete;
  AutoreleasePool& operator=(const AutoreleasePool&) = delete;
  ~AutoreleasePool() { objc_autoreleasePoolPop(pool_); }

 private:
  void* const pool_;
};

}  // namespace qbdkr
