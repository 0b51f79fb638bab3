#pragma once

#include <memory>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>

namespace qbdkr {

// Makes an object of a service class.
using ClassMaker = std::unique_ptr<QBHPAppEventBase> (*)();

// Makes a class known by its name, so that an RPC event that names it gets an object although none
// is registered. The service classes of this library are known from the start, and in a host the
// communicator; a helper agent adds its own, or replaces one of the same name. Any thread.
QBDKR_EXPORT void registerClass(std::string_view className, ClassMaker maker);

template <class Service>
void registerClass() {
  registerClass(Service::kClassName,
                []() -> std::unique_ptr<QBHPAppEventBase> { return std::make_unique<Service>(); });
}

// An object of the class of that name; null when there is no such class. Any thread.
[[nodiscard]] QBDKR_EXPORT std::unique_ptr<QBHPAppEventBase> makeObject(std::string_view className);

}  // namespace qbdkr
