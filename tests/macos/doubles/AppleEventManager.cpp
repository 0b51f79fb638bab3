#include "macos/doubles/AppleEventManager.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <utility>

#include "macos/doubles/AutoreleasePools.h"
#include "macos/doubles/Mach.h"

using doubles::AEDescriptor;

struct mach_msg_header {
  AEDescriptor event;
};

namespace {

constexpr OSErr notFound = -1701;
constexpr AEKeyword eventClass = 0x6576636C;  // evcl
constexpr AEKeyword eventID = 0x65766964;     // evid
constexpr DescType appleEvent = kCoreEventClass;
constexpr DescType plainText = 0x54455854;  // TEXT

struct Handler {
  AEEventHandlerUPP call;
  SRefCon word;
};

std::mutex mutex;
std::vector<doubles::Sent> sentEvents;
std::vector<AEDescriptor> repliesOfHandlers;
std::vector<DescType> askedCoercions;
std::map<std::string, Handler> handlers;  // by class and ID
AEReturnID lastReturnID = 100;

template <class T>
std::string bytesOf(T value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

AEDescriptor& in(const AEDesc* desc) { return *reinterpret_cast<AEDescriptor*>(desc->dataHandle); }

OSErr store(AEDescriptor descriptor, AEDesc* desc) {
  desc->descriptorType = descriptor.type;
  desc->dataHandle = reinterpret_cast<AEDataStorage>(new AEDescriptor(std::move(descriptor)));
  return noErr;
}

std::string keyOf(const AEDescriptor& event) {
  return event.attributes.at(eventClass).bytes + event.attributes.at(eventID).bytes;
}

// Converts plain ASCII to UTF-16, and integers among one another.
std::optional<AEDescriptor> coerced(const AEDescriptor& from, DescType type) {
  if (type == typeWildCard || type == from.type) return from;
  {
    const std::lock_guard lock(mutex);
    askedCoercions.push_back(type);
  }
  if (from.type == plainText && type == typeUnicodeText) {
    return AEDescriptor::text({from.bytes.begin(), from.bytes.end()});
  }
  if (from.type == typeSInt16 && type == typeSInt32) {
    std::int16_t number = 0;
    std::memcpy(&number, from.bytes.data(), sizeof number);
    return AEDescriptor::number(number);
  }
  return std::nullopt;
}

OSErr give(const std::map<AEKeyword, AEDescriptor>& from, AEKeyword keyword, DescType type,
           AEDesc* result) {
  const auto found = from.find(keyword);
  if (found == from.end()) return notFound;
  auto converted = coerced(found->second, type);
  return converted ? store(*std::move(converted), result) : doubles::coercionFails;
}

}  // namespace

namespace doubles {

AEDescriptor AEDescriptor::of(DescType type, std::string bytes) {
  return {type, std::move(bytes), {}, {}, {}};
}

AEDescriptor AEDescriptor::text(const std::u16string& units) {
  return of(typeUnicodeText,
            {reinterpret_cast<const char*>(units.data()), units.size() * sizeof(char16_t)});
}

AEDescriptor AEDescriptor::number(std::int32_t number) { return of(typeSInt32, bytesOf(number)); }

AEDescriptor AEDescriptor::list(std::vector<AEDescriptor> items) {
  return {typeAEList, {}, std::move(items), {}, {}};
}

AEDescriptor AEDescriptor::event(AEEventID identifier) {
  AEDescriptor event{appleEvent, {}, {}, {}, {}};
  event.attributes[eventClass] = of(typeSInt32, bytesOf(AEEventClass{kCoreEventClass}));
  event.attributes[eventID] = of(typeSInt32, bytesOf(identifier));
  return event;
}

mach_port_t Sent::replyPort() const {
  const auto found = event.attributes.find(keyReplyPortAttr);
  if (found == event.attributes.end() || found->second.type != typeMachPort) return MACH_PORT_NULL;
  mach_port_t port = MACH_PORT_NULL;
  std::memcpy(&port, found->second.bytes.data(), sizeof port);
  return port;
}

AppleEventManager& AppleEventManager::shared() {
  static AppleEventManager manager;
  return manager;
}

std::vector<Sent> AppleEventManager::sent() const {
  const std::lock_guard lock(mutex);
  return sentEvents;
}

void AppleEventManager::deliver(const AEDescriptor& event) {
  sendMessage(registeredPort, new mach_msg_header{event});
}

std::vector<AEDescriptor> AppleEventManager::replies() const {
  const std::lock_guard lock(mutex);
  return repliesOfHandlers;
}

std::vector<DescType> AppleEventManager::coercions() const {
  const std::lock_guard lock(mutex);
  return askedCoercions;
}

}  // namespace doubles

void AEInitializeDesc(AEDesc* desc) { *desc = {typeNull, nullptr}; }

OSErr AEDisposeDesc(AEDesc* desc) {
  delete reinterpret_cast<AEDescriptor*>(desc->dataHandle);
  AEInitializeDesc(desc);
  return noErr;
}

OSErr AECreateDesc(DescType type, const void* data, Size size, AEDesc* result) {
  const auto* bytes = static_cast<const char*>(data);
  return store(AEDescriptor::of(type, {bytes, bytes + size}), result);
}

OSErr AECoerceDesc(const AEDesc* desc, DescType type, AEDesc* result) {
  auto converted = coerced(in(desc), type);
  return converted ? store(*std::move(converted), result) : doubles::coercionFails;
}

Size AEGetDescDataSize(const AEDesc* desc) { return static_cast<Size>(in(desc).bytes.size()); }

OSErr AEGetDescData(const AEDesc* desc, void* data, Size most) {
  const auto& bytes = in(desc).bytes;
  std::memcpy(data, bytes.data(), std::min(bytes.size(), static_cast<std::size_t>(most)));
  return noErr;
}

OSErr AECreateList(const void*, Size, Boolean, AEDescList* result) {
  return store(AEDescriptor::list({}), result);
}

OSErr AECountItems(const AEDescList* list, long* count) {
  *count = static_cast<long>(in(list).items.size());
  return noErr;
}

OSErr AEPutDesc(AEDescList* list, long, const AEDesc* desc) {
  in(list).items.push_back(in(desc));
  return noErr;
}

OSErr AEGetNthDesc(const AEDescList* list, long index, DescType type, AEKeyword*, AEDesc* result) {
  const auto& items = in(list).items;
  const auto place = static_cast<std::size_t>(index) - 1;
  if (place >= items.size()) return notFound;
  auto converted = coerced(items[place], type);
  return converted ? store(*std::move(converted), result) : doubles::coercionFails;
}

OSErr AECreateAppleEvent(AEEventClass, AEEventID identifier, const AEAddressDesc* target,
                         AEReturnID, AETransactionID, AppleEvent* result) {
  auto event = AEDescriptor::event(identifier);
  event.attributes[keyAddressAttr] = in(target);
  const std::lock_guard lock(mutex);
  event.attributes[keyReturnIDAttr] = AEDescriptor::of(typeSInt16, bytesOf(++lastReturnID));
  return store(std::move(event), result);
}

OSErr AEPutParamDesc(AppleEvent* event, AEKeyword keyword, const AEDesc* desc) {
  in(event).parameters[keyword] = in(desc);
  return noErr;
}

OSErr AEPutAttributePtr(AppleEvent* event, AEKeyword keyword, DescType type, const void* data,
                        Size size) {
  const auto* bytes = static_cast<const char*>(data);
  in(event).attributes[keyword] = AEDescriptor::of(type, {bytes, bytes + size});
  return noErr;
}

OSErr AEGetParamDesc(const AppleEvent* event, AEKeyword keyword, DescType type, AEDesc* result) {
  return give(in(event).parameters, keyword, type, result);
}

OSErr AEGetAttributeDesc(const AppleEvent* event, AEKeyword keyword, DescType type,
                         AEDesc* result) {
  return give(in(event).attributes, keyword, type, result);
}

AEEventHandlerUPP NewAEEventHandlerUPP(AEEventHandlerProcPtr routine) { return routine; }

OSErr AEInstallEventHandler(AEEventClass, AEEventID identifier, AEEventHandlerUPP handler,
                            SRefCon word, Boolean) {
  const std::lock_guard lock(mutex);
  handlers[keyOf(AEDescriptor::event(identifier))] = {handler, word};
  return noErr;
}

OSErr AERemoveEventHandler(AEEventClass, AEEventID identifier, AEEventHandlerUPP, Boolean) {
  const std::lock_guard lock(mutex);
  handlers.erase(keyOf(AEDescriptor::event(identifier)));
  return noErr;
}

OSStatus AESendMessage(const AppleEvent* event, AppleEvent* reply, AESendMode mode, long timeout) {
  {
    const std::lock_guard lock(mutex);
    sentEvents.push_back({in(event), mode, timeout, doubles::openPools()});
  }
  if (mode != kAEWaitReply) return noErr;
  AEDescriptor answer = AEDescriptor::event(kAEAnswer);
  auto& manager = doubles::AppleEventManager::shared();
  const OSStatus status = manager.answer ? manager.answer(answer) : noErr;
  if (status == noErr) store(std::move(answer), reply);
  return status;
}

mach_port_t AEGetRegisteredMachPort(void) { return doubles::registeredPort; }

// The status of a handler goes into its reply.
OSStatus AEProcessMessage(mach_msg_header_t* header) {
  AEDesc event{};
  AEDesc reply{};
  store(std::move(header->event), &event);
  store(AEDescriptor::event(kAEAnswer), &reply);
  delete header;
  Handler handler{};
  {
    const std::lock_guard lock(mutex);
    handler = handlers.at(keyOf(in(&event)));
  }
  const OSErr status = handler.call(&event, &reply, handler.word);
  if (status != noErr) in(&reply).parameters[keyErrorNumber] = AEDescriptor::number(status);
  {
    const std::lock_guard lock(mutex);
    repliesOfHandlers.push_back(in(&reply));
  }
  AEDisposeDesc(&event);
  AEDisposeDesc(&reply);
  return noErr;
}
