#pragma once

#include <array>
#include <cstddef>
#include <new>
#include <type_traits>

namespace qbdkr {

// Holds an object that lives until the process ends: threads may use it while the host leaves
// main(). Use it for a function's static variable, which is constructed on first use:
//
//   static NeverDestroyed service([] { return Service(); });
//   return *service;
//
// The lambda is written at the place of use, and so may call a private constructor.
template <class T>
class NeverDestroyed {
 public:
  template <class Make>
  explicit NeverDestroyed(const Make& make) {
    new (storage_.data()) T(make());
  }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;
  ~NeverDestroyed() = default;

  T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_.data())); }
  T* operator->() { return &**this; }

 private:
  alignas(T) std::array<std::byte, sizeof(T)> storage_{};
};

template <class Make>
NeverDestroyed(const Make&) -> NeverDestroyed<std::invoke_result_t<Make>>;

}  // namespace qbdkr
