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

// Describes one method that can be called by name.
struct Method {
  Selector selector;      // its full name
  std::size_t arity = 0;  // how many texts it takes
  // Calls it on an object of its class.
  String (*invoke)(QBHPAppEventBase& object, std::span<const Text> arguments) = nullptr;
};

// The base of every service class. Calls its methods by name with text arguments, and records the
// applications that sent RPC events to this process.
class QBDKR_EXPORT QBHPAppEventBase {
 public:
  QBHPAppEventBase();
  QBHPAppEventBase(const QBHPAppEventBase&) = delete;
  QBHPAppEventBase& operator=(const QBHPAppEventBase&) = delete;
  virtual ~QBHPAppEventBase();

  // Returns the class name in the RPC events to and from this class.
  [[nodiscard]] virtual std::string_view className() const = 0;

  // Returns the bundle identifiers of the first 4,096 applications from which this process
  // dispatched an RPC event, to any of its services. Any thread.
  [[nodiscard]] std::set<std::string> bundleIDSet() const;

  // Records the sender of the event that is dispatched next, unless 4,096 others are recorded
  // already. Throws InvalidArgumentException if the sender is absent: the event is then not
  // dispatched. A helper agent may override it to learn the application to answer. The dispatcher
  // calls it on the main thread; any thread may.
  virtual void setBundleID(Text bundleID);

  // Calls a method by its full name, and returns its text: absent if the method returns a status,
  // or is unknown. Passes missing arguments as absent. Throws InvalidArgumentException for more
  // arguments than the method takes. Runs on the calling thread; blocks and throws as the method
  // does. A helper agent may override it to see every request of a class in one place.
  virtual String performSelector(std::string_view selector, std::span<const Text> objects);

 protected:
  // Returns the methods that can be called by name: a static table, the same for all objects of a
  // class. Empty by default.
  [[nodiscard]] virtual std::span<const Method> methods() const { return {}; }
};

namespace detail {

// Calls a member function. Missing arguments are absent.
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

// Makes the table entry of a member function that takes texts, and returns a text, a status or
// nothing.
template <auto Member>
consteval Method method(Selector selector) {
  constexpr std::size_t arity = detail::MemberFunction<decltype(Member)>::arity;
  Selector::of<Member>(selector.text());
  return {selector, arity, [](QBHPAppEventBase& object, std::span<const Text> arguments) {
            return detail::invoke<Member>(object, arguments, std::make_index_sequence<arity>());
          }};
}

}  // namespace qbdkr
