#include "Platform/Events/AppleEvents/SerialNumber.h"

namespace qbdkr {
namespace {

constexpr std::size_t wordSize = 4;

void appendBigEndian(std::string& bytes, std::uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift & 0xFFU);
}

std::uint32_t bigEndianWord(std::string_view bytes) {
  std::uint32_t word = 0;
  for (const char byte : bytes) word = word << 8U | static_cast<unsigned char>(byte);
  return word;
}

}  // namespace

std::string bytesOfSerialNumber(const ProcessSerialNumber& number) {
  std::string bytes;
  appendBigEndian(bytes, number.highLongOfPSN);
  appendBigEndian(bytes, number.lowLongOfPSN);
  return bytes;
}

std::optional<ProcessSerialNumber> serialNumberFromBytes(std::string_view bytes) {
  if (bytes.size() != 2 * wordSize) return std::nullopt;
  return ProcessSerialNumber{bigEndianWord(bytes.substr(0, wordSize)),
                             bigEndianWord(bytes.substr(wordSize))};
}

}  // namespace qbdkr
