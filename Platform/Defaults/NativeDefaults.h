#pragma once

#include <memory>
#include <optional>
#include <string>

#include <ClientComm/PropertyList.h>

namespace qbdkr {

// The settings of one domain, as the system keeps them. Any thread. This process sees a change at
// once; synchronize() stores it, and keeps it if it cannot be stored. The domain's name is valid as
// the name of a file.
class DefaultsStore {
 public:
  explicit DefaultsStore(const std::string& domain);
  DefaultsStore(const DefaultsStore&) = delete;
  DefaultsStore& operator=(const DefaultsStore&) = delete;
  ~DefaultsStore();

  // Returns the settings of a domain as they are stored now; absent if none are stored.
  [[nodiscard]] static std::optional<PropertyList::Dictionary> contentsOf(
      const std::string& domain);

  [[nodiscard]] std::optional<PropertyList> object(const std::string& key) const;
  // The value must be one that a property list can hold.
  void setObject(const std::string& key, std::optional<PropertyList> value);
  bool synchronize();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace qbdkr
