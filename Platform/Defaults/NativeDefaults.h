#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/PropertyLists/PropertyList.h"

namespace qbdkr {

// The settings of one domain as the system keeps them. Usable from any thread. What is set is seen
// by this process at once, and stored by synchronize(); what could not be stored is kept. The
// domain has a name that a file may have.
class DefaultsStore {
 public:
  explicit DefaultsStore(const std::string& domain);
  DefaultsStore(const DefaultsStore&) = delete;
  DefaultsStore& operator=(const DefaultsStore&) = delete;
  ~DefaultsStore();

  [[nodiscard]] static std::optional<PropertyList::Dictionary> contentsOf(
      const std::string& domain);

  [[nodiscard]] std::optional<PropertyList> object(const std::string& key) const;
  // The value is one that a property list can hold.
  void setObject(const std::string& key, std::optional<PropertyList> value);
  bool synchronize();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace qbdkr
