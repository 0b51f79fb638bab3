#include "ProductClient/SimilarKeys.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <vector>

#include <ClientComm/Bundle.h>

#include "ClientComm/InfoKeys.h"

namespace qbdkr {
namespace {

// No key is longer; the costs of a comparison grow with the square.
constexpr std::size_t longestKey = 64;
// An information dictionary has dozens.
constexpr std::size_t mostKeys = 2000;

constexpr std::array<std::string_view, 17> knownKeys{kCFBundleIdentifierKey,
                                                     kCFBundleNameKey,
                                                     kCFBundleVersionKey,
                                                     kCFBundleExecutableKey,
                                                     infokey::helperBundleIdentifier,
                                                     infokey::heleprAppName,
                                                     infokey::helperAppName,
                                                     infokey::helperLoactionPath,
                                                     infokey::helperLocationPath,
                                                     infokey::helperMustBeInstalledCopy,
                                                     infokey::helperIsSupervised,
                                                     infokey::helperInOwnScope,
                                                     infokey::productID,
                                                     infokey::tipsEnable,
                                                     infokey::enableAD,
                                                     "CFBundleShortVersionString",
                                                     "CFBundleDisplayName"};

std::string lettersOf(std::string_view key) {
  std::string letters;
  for (const char byte : key) {
    const bool isUpper = byte >= 'A' && byte <= 'Z';
    const bool isOther = (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
    if (isUpper) letters += static_cast<char>(byte - 'A' + 'a');
    if (isOther) letters += byte;
  }
  return letters;
}

}  // namespace

std::size_t keyDistance(std::string_view one, std::string_view other, std::size_t most) {
  const std::string a = lettersOf(one.substr(0, longestKey));
  const std::string b = lettersOf(other.substr(0, longestKey));
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return std::min(row.back(), most);
}

std::optional<std::string> keyMeantAs(std::string_view wanted,
                                      const PropertyList::Dictionary& dictionary) {
  // One in six letters: "PID" must be right but for its case.
  std::size_t nearest = lettersOf(wanted).size() / 6 + 1;
  std::optional<std::string> meant;
  std::size_t count = 0;
  for (const auto& [key, value] : dictionary) {
    if (++count > mostKeys) break;
    if (key.size() > longestKey || std::ranges::find(knownKeys, key) != knownKeys.end()) continue;
    const std::size_t distance = keyDistance(wanted, key, nearest);
    if (distance >= nearest) continue;
    nearest = distance;
    meant = key;
  }
  return meant;
}

}  // namespace qbdkr
