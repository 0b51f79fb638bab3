#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace qbdkr {

namespace detail {

template <class Member>
struct MemberFunction;

template <class Class, class Result, class... Parameters>
struct MemberFunction<Result (Class::*)(Parameters...)> {
  using Owner = Class;
  static constexpr std::size_t arity = sizeof...(Parameters);
};

template <class Class, class Result, class... Parameters>
struct MemberFunction<Result (Class::*)(Parameters...) noexcept>
    : MemberFunction<Result (Class::*)(Parameters...)> {};

template <class Class, class Result, class... Parameters>
struct MemberFunction<Result (Class::*)(Parameters...) const>
    : MemberFunction<Result (Class::*)(Parameters...)> {};

}  // namespace detail

// Holds the full name of a method, as it is sent and logged. Written once, beside the member
// function that it names. Compiles only if it has one colon per parameter. Its words are not
// checked: the peer decides how they are spelled.
class Selector {
 public:
  template <auto Member>
  static consteval Selector of(std::string_view text) {
    const auto colons = static_cast<std::size_t>(std::ranges::count(text, ':'));
    if (colons != detail::MemberFunction<decltype(Member)>::arity) {
      throw "the colons of a selector are as many as the parameters of its function";
    }
    return Selector(text);
  }

  // Returns the name.
  [[nodiscard]] constexpr std::string_view text() const { return text_; }

 private:
  constexpr explicit Selector(std::string_view text) : text_(text) {}
  std::string_view text_;
};

// Makes the selector of a member function from its full name: see Selector::of().
template <auto Member>
consteval Selector selector(std::string_view text) {
  return Selector::of<Member>(text);
}

}  // namespace qbdkr
