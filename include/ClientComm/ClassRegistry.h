#pragma once

#include <memory>
#include <string_view>

#include <ClientComm/Export.h>
#include <ClientComm/QBHPAppEventBase.h>

namespace qbdkr {

// Makes an object of a service class.
using ClassMaker = std::unique_ptr<QBHPAppEventBase> (*)();

// Registers a class by its name: an RPC event that names it is dispatched to a new object if no
// object has that name. The service classes of this library are registered from the start, in a
// host the communicator's name as well. A helper agent adds its own, or replaces one of the same
// name. Any thread; does not wait.
QBDKR_EXPORT void registerClass(std::string_view className, ClassMaker maker);

// Registers a class under its own name, kClassName. Its objects are made without arguments.
template <class Service>
void registerClass() {
  registerClass(Service::kClassName,
                []() -> std::unique_ptr<QBHPAppEventBase> { return std::make_unique<Service>(); });
}

// Makes an object of a class by its name; null if the name is unknown.
using ClassFinder = std::unique_ptr<QBHPAppEventBase> (*)(std::string_view className);

// Sets the function that is asked for the classes that are not registered, as those of another
// language; null, as at first, for none. The names come from other processes: it must make objects
// of service classes alone. Any thread; does not wait for a call of the earlier one.
QBDKR_EXPORT void setClassFinder(ClassFinder finder);

// Makes an object of a registered class, else of a class that the finder knows; null if the class
// is unknown. Any thread; throws and blocks as the class's constructor does.
[[nodiscard]] QBDKR_EXPORT std::unique_ptr<QBHPAppEventBase> makeObject(std::string_view className);

}  // namespace qbdkr
