#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace qbdkr {

struct SdBusDeleter {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

using BusMessage = std::unique_ptr<sd_bus_message, SdBusDeleter>;
using BusSlot = std::unique_ptr<sd_bus_slot, SdBusDeleter>;
using UniqueBus = std::unique_ptr<sd_bus, SdBusDeleter>;

// The time that the bus itself gets for its part.
inline constexpr std::chrono::seconds busPatience(5);

// Returns a time as sd-bus and sd-event take it.
constexpr std::uint64_t asMicroseconds(std::chrono::microseconds time) {
  return static_cast<std::uint64_t>(time.count());
}

namespace rpc {

// The contract with every other process on the bus.
inline constexpr const char* objectPath = "/QBHP/RPCEvent";
inline constexpr const char* interfaceName = "QBHP.RPCEvent1";
inline constexpr const char* callMember = "Call";
inline constexpr const char* callSignature = "ssas";
inline constexpr const char* resultSignature = "s";
// Beside it, on the same object: answers when the caller's earlier events were taken.
inline constexpr const char* deliveryInterface = "QBHP.Delivery1";
inline constexpr const char* flushMember = "Flush";
// On the same object: takes an introduction, for senders behind a proxy.
inline constexpr const char* identityInterface = "QBHP.Identity1";
inline constexpr const char* introduceMember = "Introduce";
inline constexpr const char* introduceSignature = "h";
// On the same object: takes the end of a direct connection, and is told when that begins.
inline constexpr const char* directInterface = "QBHP.Direct1";
inline constexpr const char* connectMember = "Connect";
inline constexpr const char* connectSignature = "hh";   // a socket, and memory of the sender
inline constexpr const char* agreementSignature = "h";  // memory of the receiver
inline constexpr const char* beginMember = "Begin";
// While this name has an owner, events travel on the bus alone, where they can be watched.
inline constexpr const char* watchName = "QBHP.Watch1";
// On the same object: answers with the diagnosis of the process.
inline constexpr const char* diagnosisInterface = "QBHP.Diagnosis1";
inline constexpr const char* textMember = "Text";

}  // namespace rpc

namespace bus {

inline constexpr const char* service = "org.freedesktop.DBus";
inline constexpr const char* objectPath = "/org/freedesktop/DBus";
inline constexpr const char* interfaceName = "org.freedesktop.DBus";

// Returns the match rule for changes of any name's owner.
inline std::string ownerMatch() {
  return "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
         "interface='org.freedesktop.DBus',member='NameOwnerChanged'";
}

// Returns the match rule for changes of one name's owner.
inline std::string ownerMatch(const std::string& name) {
  return ownerMatch() + ",arg0='" + name + "'";
}

}  // namespace bus

// Calls back when the connection ends. False if that cannot be watched.
inline bool watchDisconnection(sd_bus* connection, sd_bus_message_handler_t onEnd, void* userData) {
  return sd_bus_match_signal(connection, nullptr, nullptr, "/org/freedesktop/DBus/Local",
                             "org.freedesktop.DBus.Local", "Disconnected", onEnd, userData) >= 0;
}

}  // namespace qbdkr
