#include "Platform/Events/DBus/DirectMessage.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "Platform/Base/NeverDestroyed.h"
#include "Platform/Events/DBus/SdBus.h"
#include "Platform/Text/Text.h"

namespace qbdkr::direct {
namespace {

// The fixed part of a header: order of bytes, type, flags, version; then three numbers.
constexpr std::size_t flagsAt = 2;
constexpr std::size_t bodySizeAt = 4;
constexpr std::size_t serialAt = 8;
constexpr std::size_t fieldsSizeAt = 12;
constexpr std::size_t fixedSize = 16;
constexpr char byteOrder = std::endian::native == std::endian::little ? 'l' : 'B';
constexpr char protocolVersion = 1;
constexpr char noReplyExpected = 1;

enum Type : char { methodCall = 1, methodReturn = 2, error = 3 };
enum Field : char { path = 1, interface, member, errorName, replySerial, signature = 8 };

constexpr std::size_t largestHeader = 4096;
constexpr std::size_t largestAnswer = mostEventContent + largestHeader;

constexpr std::size_t padded(std::size_t size, std::size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

// --- Writing

void align(std::string& bytes, std::size_t alignment) {
  bytes.resize(padded(bytes.size(), alignment));
}

void putNumber(std::string& bytes, std::size_t place, std::size_t number) {
  const auto value = static_cast<std::uint32_t>(number);
  std::memcpy(bytes.data() + place, &value, sizeof value);
}

void addNumber(std::string& bytes, std::size_t number) {
  align(bytes, sizeof(std::uint32_t));
  bytes.resize(bytes.size() + sizeof(std::uint32_t));
  putNumber(bytes, bytes.size() - sizeof(std::uint32_t), number);
}

void addText(std::string& bytes, std::string_view text) {
  addNumber(bytes, text.size());
  bytes.append(text);
  bytes.push_back('\0');
}

bool hasNoncharacter(const RPCEvent& event) {
  const auto isIn = [](const std::string& text) { return hasAnyNoncharacter(text); };
  return (event.className && isIn(*event.className)) ||
         (event.methodName && isIn(*event.methodName)) ||
         std::ranges::any_of(event.arguments, isIn);
}

// Begins a field of a header, with the type of its value.
void beginField(std::string& bytes, Field field, char type) {
  constexpr std::size_t alignment = 8;
  align(bytes, alignment);
  bytes.append({static_cast<char>(field), 1, type, '\0'});
}

void addField(std::string& bytes, Field field, char type, std::string_view text) {
  beginField(bytes, field, type);
  if (type != SD_BUS_TYPE_SIGNATURE) return addText(bytes, text);
  bytes.push_back(static_cast<char>(text.size()));
  bytes.append(text);
  bytes.push_back('\0');
}

void beginHeader(std::string& bytes, Type type) {
  bytes.assign({byteOrder, static_cast<char>(type), 0, protocolVersion});
  bytes.resize(fixedSize);
}

void endHeader(std::string& bytes) {
  putNumber(bytes, fieldsSizeAt, bytes.size() - fixedSize);
  constexpr std::size_t alignment = 8;
  align(bytes, alignment);
}

std::string callHeader(std::string_view ofInterface, std::string_view ofMember,
                       std::string_view ofBody) {
  std::string bytes;
  beginHeader(bytes, methodCall);
  addField(bytes, path, SD_BUS_TYPE_OBJECT_PATH, rpc::objectPath);
  addField(bytes, interface, SD_BUS_TYPE_STRING, ofInterface);
  addField(bytes, member, SD_BUS_TYPE_STRING, ofMember);
  if (!ofBody.empty()) addField(bytes, signature, SD_BUS_TYPE_SIGNATURE, ofBody);
  endHeader(bytes);
  return bytes;
}

// Numbers a message and notes the size of its body.
void complete(std::string& bytes, Serial serial, std::size_t headerSize) {
  putNumber(bytes, serialAt, serial);
  putNumber(bytes, bodySizeAt, bytes.size() - headerSize);
}

// --- Reading

// Takes the parts of a message off its beginning. Once one is missing, all are.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] bool isGood() const { return isGood_; }
  [[nodiscard]] bool isAtEnd() const { return isGood_ && at_ == bytes_.size(); }
  [[nodiscard]] std::size_t position() const { return at_; }

  std::string_view take(std::size_t size) {
    if (!isGood_ || size > bytes_.size() - at_) {
      isGood_ = false;
      return {};
    }
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }

  void align(std::size_t alignment) { take(padded(at_, alignment) - at_); }

  std::size_t number() {
    std::uint32_t value = 0;
    align(sizeof value);
    const auto bytes = take(sizeof value);
    if (isGood_) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  std::string_view text() { return terminated(number()); }

  std::string_view signatureText() {
    const auto size = take(1);
    return isGood_ ? terminated(static_cast<unsigned char>(size.front())) : size;
  }

 private:
  std::string_view terminated(std::size_t size) {
    const auto text = take(size);
    const auto end = take(1);
    if (isGood_ && end.front() != '\0') isGood_ = false;
    return isGood_ ? text : std::string_view();
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  bool isGood_ = true;
};

struct Header {
  char type = 0;
  bool expectsAnswer = false;
  Serial serial = 0;
  Serial answered = 0;
  std::size_t bodySize = 0;
  std::string_view interfaceName;
  std::string_view memberName;
  std::string_view errorText;
  std::string_view bodySignature;
};

// Reads one field. Those of no meaning here are passed over.
bool readField(Reader& reader, Header& header) {
  constexpr std::size_t alignment = 8;
  reader.align(alignment);
  const auto code = reader.take(1);
  const auto type = reader.signatureText();
  if (!reader.isGood() || type.size() != 1) return false;
  std::string_view text;
  std::size_t number = 0;
  switch (type.front()) {
    case SD_BUS_TYPE_STRING:
    case SD_BUS_TYPE_OBJECT_PATH:
      text = reader.text();
      break;
    case SD_BUS_TYPE_SIGNATURE:
      text = reader.signatureText();
      break;
    case SD_BUS_TYPE_UINT32:
      number = reader.number();
      break;
    default:
      return false;
  }
  switch (code.front()) {
    case interface:
      header.interfaceName = text;
      break;
    case member:
      header.memberName = text;
      break;
    case errorName:
      header.errorText = text;
      break;
    case replySerial:
      header.answered = static_cast<Serial>(number);
      break;
    case signature:
      header.bodySignature = text;
      break;
    default:
      break;
  }
  return reader.isGood();
}

// Reads a header up to its body.
std::optional<Header> readHeader(Reader& reader) {
  const auto fixed = reader.take(fixedSize);
  if (!reader.isGood() || fixed[0] != byteOrder || fixed[3] != protocolVersion) return std::nullopt;
  const auto numberAt = [&](std::size_t place) {
    return Reader(fixed.substr(place, sizeof(std::uint32_t))).number();
  };
  Header header;
  header.type = fixed[1];
  header.expectsAnswer = (fixed[flagsAt] & noReplyExpected) == 0;
  header.serial = static_cast<Serial>(numberAt(serialAt));
  header.bodySize = numberAt(bodySizeAt);
  const std::size_t fieldsSize = numberAt(fieldsSizeAt);
  if (fieldsSize > largestHeader - fixedSize) return std::nullopt;
  while (reader.position() < fixedSize + fieldsSize) {
    if (!readField(reader, header)) return std::nullopt;
  }
  constexpr std::size_t alignment = 8;
  if (reader.position() != fixedSize + fieldsSize) return std::nullopt;
  reader.align(alignment);
  if (!reader.isGood() || header.serial == 0) return std::nullopt;
  return header;
}

bool readArguments(Reader& reader, RPCEvent& event, EventAllowance& allowance) {
  const std::size_t size = reader.number();
  const std::size_t end = reader.position() + size;
  while (reader.isGood() && reader.position() < end) {
    const auto text = reader.text();
    if (!reader.isGood() || !allowance.takeArgument(text)) return false;
    event.arguments.emplace_back(text);
  }
  return reader.isAtEnd() && reader.position() == end;
}

bool readEvent(Reader& reader, Request& request) {
  RPCEvent event;
  EventAllowance allowance;
  const auto className = reader.text();
  const auto methodName = reader.text();
  if (!reader.isGood() || !allowance.takeName(className) || !allowance.takeName(methodName) ||
      !readArguments(reader, event, allowance)) {
    return false;
  }
  event.className = className;
  event.methodName = methodName;
  request.event = std::move(event);
  request.size = allowance.used();
  return true;
}

}  // namespace

bool writeCall(std::string& bytes, Serial serial, bool expectsAnswer, const RPCEvent& event) {
  if (hasNoncharacter(event)) return false;
  // Threads send until the process ends.
  static NeverDestroyed header(
      [] { return callHeader(rpc::interfaceName, rpc::callMember, rpc::callSignature); });
  bytes.assign(*header);
  if (!expectsAnswer) bytes[flagsAt] = noReplyExpected;
  addText(bytes, event.className ? std::string_view(*event.className) : std::string_view());
  addText(bytes, event.methodName ? std::string_view(*event.methodName) : std::string_view());
  addNumber(bytes, 0);
  const std::size_t begin = bytes.size();
  for (const std::string& text : event.arguments) addText(bytes, text);
  putNumber(bytes, begin - sizeof(std::uint32_t), bytes.size() - begin);
  complete(bytes, serial, header->size());
  return true;
}

void writeFlush(std::string& bytes, Serial serial) {
  static NeverDestroyed header(
      [] { return callHeader(rpc::deliveryInterface, rpc::flushMember, {}); });
  bytes.assign(*header);
  complete(bytes, serial, header->size());
}

// D-Bus wants a number for the answer itself. It is that of the request, as no reader uses it.
void writeResult(std::string& bytes, Serial request, std::string_view result) {
  beginHeader(bytes, methodReturn);
  beginField(bytes, replySerial, SD_BUS_TYPE_UINT32);
  addNumber(bytes, request);
  addField(bytes, signature, SD_BUS_TYPE_SIGNATURE, rpc::resultSignature);
  endHeader(bytes);
  const std::size_t headerSize = bytes.size();
  addText(bytes, result);
  complete(bytes, request, headerSize);
}

void writeError(std::string& bytes, Serial request, std::string_view name) {
  beginHeader(bytes, error);
  beginField(bytes, replySerial, SD_BUS_TYPE_UINT32);
  addNumber(bytes, request);
  addField(bytes, errorName, SD_BUS_TYPE_STRING, name);
  endHeader(bytes);
  complete(bytes, request, bytes.size());
}

std::optional<Request> readRequest(std::string_view bytes) {
  Reader reader(bytes);
  const auto header = readHeader(reader);
  if (!header || header->type != methodCall || bytes.size() - reader.position() != header->bodySize)
    return std::nullopt;
  Request request{header->serial, header->expectsAnswer, {}, 0};
  if (header->interfaceName == rpc::deliveryInterface && header->memberName == rpc::flushMember) {
    if (reader.isAtEnd()) return request;
    return std::nullopt;
  }
  if (header->interfaceName != rpc::interfaceName || header->memberName != rpc::callMember ||
      header->bodySignature != rpc::callSignature || !readEvent(reader, request)) {
    return std::nullopt;
  }
  return request;
}

std::optional<Answer> readAnswer(std::string_view bytes) {
  Reader reader(bytes);
  const auto header = readHeader(reader);
  if (!header || header->answered == 0 || bytes.size() - reader.position() != header->bodySize) {
    return std::nullopt;
  }
  Answer answer{header->answered, {}, {}};
  if (header->type == error && !header->errorText.empty()) {
    answer.error = header->errorText;
    return answer;
  }
  if (header->type != methodReturn) return std::nullopt;
  if (header->bodySignature.empty()) return answer;  // to a question
  if (header->bodySignature != rpc::resultSignature) return std::nullopt;
  answer.result = reader.text();
  if (!reader.isAtEnd() || !isSendable(answer.result)) return std::nullopt;
  return answer;
}

std::optional<std::size_t> sizeOfAnswer(std::string_view beginning) {
  Reader reader(beginning);
  const auto header = readHeader(reader);
  if (!header) return std::nullopt;
  const std::size_t size = reader.position() + header->bodySize;
  if (size > largestAnswer) return std::nullopt;
  return size;
}

}  // namespace qbdkr::direct
