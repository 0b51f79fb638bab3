#include "FailingMemory.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::size_t never = std::numeric_limits<std::size_t>::max();
thread_local std::size_t left = never;
thread_local bool failed = false;

}  // namespace

// Replaces all forms of the C++ library or a sanitizer, which must not be mixed with these. The
// non-throwing form for a single object is in DetachedThreadTest.cpp.
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

void* operator new[](std::size_t size) { return operator new(size); }

void* operator new[](std::size_t size, const std::nothrow_t& none) noexcept {
  return operator new(size, none);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace qbdkr::test {

FailingMemory::FailingMemory(std::size_t others) {
  failed = false;
  left = others;
}

FailingMemory::~FailingMemory() { stop(); }

void FailingMemory::stop() { left = never; }

bool FailingMemory::hasFailed() { return failed; }

}  // namespace qbdkr::test
