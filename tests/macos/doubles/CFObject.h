#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstddef>

namespace doubles {

// The kinds of objects; CFGetTypeID() gives them as numbers. No code asks for the type of another.
enum class CFKind : CFTypeID {
  string = 1,
  array,
  dictionary,
  data,
  number,
  boolean,
  date,
  url,
  characterSet,
  other
};

// An object of Core Foundation. It begins with one owner. Any thread may retain and release it.
class CFObject {
 public:
  explicit CFObject(CFKind kind = CFKind::other);
  CFObject(const CFObject&) = delete;
  CFObject& operator=(const CFObject&) = delete;
  virtual ~CFObject();

  [[nodiscard]] CFKind kind() const { return kind_; }
  void retain() const { ++owners_; }
  void release() const {
    if (--owners_ == 0) delete this;
  }

 private:
  const CFKind kind_;
  mutable std::atomic<std::size_t> owners_ = 1;
};

// Counts the objects that have an owner.
[[nodiscard]] std::size_t liveObjects();

// Converts between an object and the type by which a call knows it.
template <class Ref>
Ref refTo(CFObject* object) {
  return static_cast<Ref>(static_cast<void*>(object));
}

// Throws std::bad_cast for an object of another class.
template <class Object>
Object& objectOf(CFTypeRef ref) {
  return dynamic_cast<Object&>(*static_cast<CFObject*>(const_cast<void*>(ref)));
}

}  // namespace doubles
