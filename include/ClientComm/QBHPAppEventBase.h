#pragma once

#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <ClientComm/Export.h>
#include <ClientComm/Selector.h>
#include <ClientComm/Status.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

class QBHPAppEventBase;

// One entry of a class's table of methods that can be called by name.
struct Method {
  Selector selector;
  std::size_t arity = 0;
  String (*invoke)(QBHPAppEventBase& object, std::span<const Text> arguments) = nullptr;
};

// Base of every service class: calls its methods by name with text arguments, and knows which
// applications have sent RPC events to this process.
class QBDKR_EXPORT QBHPAppEventBase {
 public:
  QBHPAppEventBase();
  QBHPAppEventBase(const QBHPAppEventBase&) = delete;
  QBHPAppEventBase& operator=(const QBHPAppEventBase&) = delete;
  virtual ~QBHPAppEventBase();

  // The name under which RPC events reach this class and are sent by it.
  [[nodiscard]] virtual std::string_view className() const = 0;

  // The bundle identifiers of the applications from which an RPC event was dispatched, to any
  // service of this process, since it started: of the first 4,096. Any thread.
  [[nodiscard]] std::set<std::string> bundleIDSet() const;

  // Records the sender of the event that is dispatched next, unless 4,096 others are recorded
  // already; the event is dispatched all the same. Throws InvalidArgumentException if the sender is
  // absent, and the event is then not dispatched. A helper agent may override it to learn whom to
  // answer. Called on the main thread; any thread may call it.
  virtual void setBundleID(Text bundleID);

  // Calls the method of that full name. Missing arguments are passed as absent; more than the
  // method takes throw InvalidArgumentException. Returns the text that the method returned: absent
  // for a method that returns a status, and where this object has no such method. Runs on the
  // calling thread, and blocks as the method does. A helper agent may override it to see every
  // request of a class in one place.
  virtual String performSelector(std::string_view selector, std::span<const Text> objects);

 protected:
  // The methods that can be called by name: static, and the same for all objects of a class. None
  // by default.
  [[nodiscard]] virtual std::span<const Method> methods() const { return {}; }
};

namespace detail {

// Calls a member function with the arguments there are, the missing ones absent.
template <auto Member, std::size_t... I>
String invoke(QBHPAppEventBase& object, std::span<const Text> arguments,
              std::index_sequence<I...> /*parameters*/) {
  using Owner = typename MemberFunction<decltype(Member)>::Owner;
  const auto argument = [&](std::size_t index) {
    return index < arguments.size() ? arguments[index] : Text();
  };
  const auto call = [&] { return (static_cast<Owner&>(object).*Member)(argument(I)...); };
  using Result = decltype(call());
  if constexpr (std::is_same_v<Result, OSErr> || std::is_void_v<Result>) {
    call();  // a status is no result
    return std::nullopt;
  } else {
    static_assert(std::is_convertible_v<Result, String>,
                  "a method that is called by name returns a String, an OSErr or nothing");
    return call();
  }
}

}  // namespace detail

// The table entry of a member function whose parameters are texts and whose result is a text, a
// status or nothing.
template <auto Member>
consteval Method method(Selector selector) {
  constexpr std::size_t arity = detail::MemberFunction<decltype(Member)>::arity;
  Selector::of<Member>(selector.text());
  return {selector, arity, [](QBHPAppEventBase& object, std::span<const Text> arguments) {
            return detail::invoke<Member>(object, arguments, std::make_index_sequence<arity>());
          }};
}

}  // namespace qbdkr
