#include "FailingMemory.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t never = std::numeric_limits<std::size_t>::max();
thread_local std::size_t left = never;
thread_local bool failed = false;

}  // namespace

// In the place of the library's. Those for arrays, and those that throw nothing, call these.
void* operator new(std::size_t size) {
  if (left != never && left-- == 0) {
    left = never;
    failed = true;
    throw std::bad_alloc();
  }
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace qbdkr::test {

FailingMemory::FailingMemory(std::size_t others) {
  failed = false;
  left = others;
}

FailingMemory::~FailingMemory() { left = never; }

bool FailingMemory::hasFailed() { return failed; }

}  // namespace qbdkr::test
