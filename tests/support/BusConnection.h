#pragma once

#include <stdexcept>
#include <string>

#include "Platform/Events/DBus/SdBus.h"
#include "support/PrivateBus.h"

namespace qbdkr::test {

inline std::string nameOf(const UniqueBus& connection) {
  const char* name = "";
  sd_bus_get_unique_name(connection.get(), &name);
  return name;
}

// Returns a connection that has its name.
inline UniqueBus connectionTo(const PrivateBus& bus) {
  sd_bus* made = nullptr;
  if (sd_bus_new(&made) < 0) throw std::runtime_error("no connection");
  UniqueBus connection(made);
  if (sd_bus_set_address(made, bus.address().c_str()) < 0 || sd_bus_set_bus_client(made, 1) < 0 ||
      sd_bus_start(made) < 0 || nameOf(connection).empty()) {
    throw std::runtime_error("no connection to the bus");
  }
  return connection;
}

}  // namespace qbdkr::test
