#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <ClientComm/Export.h>

namespace qbdkr {

// One value of a property list. A plain value: copied deeply, compared by content. Like a standard
// container it has no lock of its own; it throws only std::bad_alloc.
class QBDKR_EXPORT PropertyList {
 public:
  // A point in time, in seconds since 2001-01-01T00:00:00Z.
  struct Date {
    double seconds = 0;  // before it: negative
    bool operator==(const Date&) const = default;
  };
  // Bytes that are no text.
  struct Data {
    std::string bytes;  // of any content
    bool operator==(const Data&) const = default;
  };
  // An integer in the range of property lists: -2^63 to 2^64-1.
  struct Integer {
    constexpr Integer() = default;
    constexpr explicit Integer(std::int64_t value)
        : magnitude(value < 0 ? 0 - static_cast<std::uint64_t>(value)
                              : static_cast<std::uint64_t>(value)),
          negative(value < 0) {}
    std::uint64_t magnitude = 0;
    bool negative = false;
    bool operator==(const Integer&) const = default;
  };
  using Array = std::vector<PropertyList>;

  // Keys and values in the order in which they were read or added.
  class QBDKR_EXPORT Dictionary {
   public:
    // A key and its value.
    using Entry = std::pair<std::string, PropertyList>;
    Dictionary();
    Dictionary(std::initializer_list<Entry> entries);
    // Equals setting the entries one after the other, but takes less than quadratic time.
    static Dictionary fromEntries(std::vector<Entry> entries);
    Dictionary(const Dictionary&);
    Dictionary(Dictionary&&) noexcept;
    Dictionary& operator=(const Dictionary&);
    Dictionary& operator=(Dictionary&&) noexcept;
    ~Dictionary();

    // Returns the value of a key; null if the key is missing. Valid until the dictionary changes.
    [[nodiscard]] const PropertyList* find(std::string_view key) const;
    // Stores a value. A value that the key already has is replaced in its place.
    void set(std::string_view key, PropertyList value);
    // Removes a key; false if it is missing.
    bool erase(std::string_view key);
    // Reads the value of a key as PropertyList::text() does. Absent if the key is missing, too.
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;

    // Return the number of entries, and walk through them in their order.
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool empty() const { return size() == 0; }
    [[nodiscard]] const Entry* begin() const;
    [[nodiscard]] const Entry* end() const;
    bool operator==(const Dictionary&) const;

   private:
    std::vector<Entry> entries_;
  };

  // One value of each type.
  using Value = std::variant<std::string, bool, Integer, double, Date, Data, Array, Dictionary>;

  PropertyList() = default;  // the empty string
  // Make a value of a type.
  PropertyList(std::string text) : value_(std::move(text)) {}
  PropertyList(std::string_view text) : value_(std::string(text)) {}
  PropertyList(const char* text) : value_(std::string(text)) {}
  PropertyList(bool flag) : value_(flag) {}
  PropertyList(int number) : value_(Integer(number)) {}
  PropertyList(std::int64_t number) : value_(Integer(number)) {}
  PropertyList(Integer number) : value_(number) {}
  PropertyList(double number) : value_(number) {}
  PropertyList(Date date) : value_(date) {}
  PropertyList(Data data) : value_(std::move(data)) {}
  PropertyList(Array array) : value_(std::move(array)) {}
  PropertyList(Dictionary dictionary) : value_(std::move(dictionary)) {}

  // Return the value, to look at or to take away.
  [[nodiscard]] const Value& value() const& { return value_; }
  [[nodiscard]] Value&& value() && { return std::move(value_); }

  // Returns the value as text: a text itself, a number as its digits ("3.1", "1e+20"), true and
  // false as "1" and "0". Absent for dates, data, containers and integers out of range.
  [[nodiscard]] std::optional<std::string> text() const;

  // Return the value if it has that type, else null.
  [[nodiscard]] const std::string* string() const { return std::get_if<std::string>(&value_); }
  [[nodiscard]] const Array* array() const { return std::get_if<Array>(&value_); }
  [[nodiscard]] const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }

  bool operator==(const PropertyList&) const = default;

 private:
  Value value_;
};

}  // namespace qbdkr
