#include "ProductClient/KeyExamination.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <variant>

#include "ClientComm/InfoKeys.h"
#include "Platform/Events/PeerLookup.h"
#include "Platform/Text/Text.h"
#include "ProductClient/SimilarKeys.h"

namespace qbdkr {
namespace {

using Dictionary = PropertyList::Dictionary;

std::string_view typeOf(const PropertyList& value) {
  constexpr std::array<std::string_view, std::variant_size_v<PropertyList::Value>> names{
      "a text", "a flag", "an integer", "a real number",
      "a date", "data",   "an array",   "a dictionary"};
  return names.at(value.value().index());
}

class KeyExaminer {
 public:
  KeyExaminer(const HostConfiguration& configuration, const Dictionary& file, Findings& findings)
      : configuration_(configuration),
        host_(configuration.host()),
        file_(file),
        findings_(findings) {}

  void examine() {
    examineHostIdentifier();
    examineProductID();
    examineHelperIdentifier();
    examineHelperName();
    examineInstallPath();
    for (const auto key : {infokey::helperMustBeInstalledCopy, infokey::helperIsSupervised,
                           infokey::helperInOwnScope, infokey::tipsEnable, infokey::enableAD}) {
      examineFlag(key);
    }
  }

 private:
  [[nodiscard]] const PropertyList* find(std::string_view key) const {
    return host_.objectForInfoDictionaryKey(key);
  }

  static std::string_view otherSpellingOf(std::string_view key) {
    if (key == infokey::heleprAppName) return infokey::helperAppName;
    return key == infokey::helperLoactionPath ? infokey::helperLocationPath : key;
  }

  // Says why a key has no text that could be used.
  void reportMissing(Finding::Severity severity, std::string_view subject, std::string_view key) {
    if (const PropertyList* value = find(key)) {
      if (value->text()) {
        return findings_.add(severity, subject, {"\"{}\" is empty.", {key}},
                             {"Give the key \"{}\" a value.", {key}});
      }
      return findings_.add(severity, subject,
                           {"\"{}\" is {}, which does not count as a text.", {key, typeOf(*value)}},
                           {"Make the value of \"{}\" a <string>.", {key}});
    }
    auto meant = keyMeantAs(key, file_);
    if (!meant) meant = keyMeantAs(otherSpellingOf(key), file_);
    if (meant) {
      return findings_.add(
          severity, subject,
          {R"(The key "{}" is missing; there is a key "{}", which is not read.)", {key, *meant}},
          {R"(Rename the key "{}" to "{}", letter for letter.)", {*meant, key}});
    }
    findings_.add(severity, subject, {"The key \"{}\" is missing from Info.plist.", {key}},
                  {"Add the key \"{}\" to the host's Info.plist.", {key}});
  }

  void examineHostIdentifier() {
    constexpr std::string_view subject = "host-identifier";
    const auto identifier = host_.infoString(kCFBundleIdentifierKey);
    if (!identifier || identifier->empty())
      return reportMissing(Finding::Severity::error, subject, kCFBundleIdentifierKey);
    if (!isReachableIdentifier(*identifier)) {
      return findings_.error(
          subject,
          {"The host's {} \"{}\" cannot be a name on the bus, so the host is not known there.",
           {kCFBundleIdentifierKey, *identifier}},
          "Give the host an identifier of two elements or more, as \"com.Acme.PhotoTool\".");
    }
    findings_.ok(subject, {"The host is {}.", {*identifier}});
  }

  void examineProductID() {
    constexpr std::string_view subject = "product-id";
    const auto product = configuration_.productID();
    if (!product || product->empty())
      return reportMissing(Finding::Severity::warning, subject, infokey::productID);
    const PropertyList* value = find(infokey::productID);
    if (value == nullptr || value->string() != nullptr) {
      return findings_.ok(subject, {"The product identifier is \"{}\".", {*product}});
    }
    findings_.note(
        subject, {R"("PID" is {}; requests carry its digits, "{}".)", {typeOf(*value), *product}});
  }

  void examineHelperIdentifier() {
    constexpr std::string_view subject = "helper-identifier";
    const auto identifier = configuration_.helperIdentifier();
    if (!identifier || identifier->empty())
      return reportMissing(Finding::Severity::error, subject, infokey::helperBundleIdentifier);
    if (!isReachableIdentifier(*identifier)) {
      return findings_.error(
          subject,
          {R"("{}" is "{}", which cannot be a name on the bus: requests return -50.)",
           {infokey::helperBundleIdentifier, *identifier}},
          "Give the helper agent an identifier of two elements or more, as \"com.Acme.Helper\","
          " in both files.");
    }
    findings_.ok(subject, {"The helper agent is {}.", {*identifier}});
  }

  // Names the winner if both spellings are there and differ.
  void compareSpellings(std::string_view subject, std::string_view first, std::string_view second,
                        const String& winner) {
    const auto one = host_.infoString(first);
    const auto other = host_.infoString(second);
    if (!one || !other || *one == *other || !winner) return;
    const bool isFirst = *one == *winner;
    findings_.warning(subject,
                      {R"(Both "{}" and "{}" are there; "{}" counts, with "{}".)",
                       {first, second, isFirst ? first : second, *winner}},
                      {"Remove the key \"{}\".", {isFirst ? second : first}});
  }

  void examineHelperName() {
    constexpr std::string_view subject = "helper-name";
    const bool isFirst = find(infokey::heleprAppName) != nullptr &&
                         host_.infoString(infokey::heleprAppName).has_value();
    const auto key = isFirst || find(infokey::helperAppName) == nullptr ? infokey::heleprAppName
                                                                        : infokey::helperAppName;
    const auto name = host_.infoString(key);
    if (!name || name->empty()) return reportMissing(Finding::Severity::error, subject, key);
    if (name->find('/') != std::string::npos || name->find('\0') != std::string::npos) {
      return findings_.error(subject,
                             {R"("{}" is "{}", which is not the name of one file.)", {key, *name}},
                             "Give only the name of the bundle, without a path.");
    }
    compareSpellings(subject, infokey::heleprAppName, infokey::helperAppName, name);
    findings_.ok(subject, {"The helper agent's bundle is {}.app.", {*name}});
  }

  void examineInstallPath() {
    constexpr std::string_view subject = "install-path";
    const auto directory = configuration_.installDirectory();
    if (!directory) {
      const bool isSecond = find(infokey::helperLoactionPath) == nullptr &&
                            find(infokey::helperLocationPath) != nullptr;
      return reportMissing(Finding::Severity::error, subject,
                           isSecond ? infokey::helperLocationPath : infokey::helperLoactionPath);
    }
    const auto first = host_.infoString(infokey::helperLoactionPath).value_or("");
    compareSpellings(subject, infokey::helperLoactionPath, infokey::helperLocationPath,
                     first.empty() ? host_.infoString(infokey::helperLocationPath) : first);
    findings_.ok(subject, {"It is installed into {}.", {*directory}});
  }

  void examineFlag(std::string_view key) {
    constexpr std::string_view subject = "flag";
    const PropertyList* value = find(key);
    if (value == nullptr) {
      const auto meant = keyMeantAs(key, file_);
      if (!meant) return;
      return findings_.warning(
          subject, {R"(The key "{}" is not read; "{}" is missing.)", {*meant, key}},
          {R"(Rename the key "{}" to "{}", letter for letter.)", {*meant, key}});
    }
    const auto text = value->text();
    if (text && isFlagText(*text)) return;
    findings_.warning(
        subject,
        {text ? R"("{}" is "{}", which counts as {}.)" : R"("{}" is {}, which counts as {}.)",
         {key, text ? std::string_view(*text) : typeOf(*value),
          boolValue(*value) ? "true" : "false"}},
        {"Make the value of \"{}\" <true/> or <false/>.", {key}});
  }

  // True for a text that everyone reads as the same flag as boolValue().
  static bool isFlagText(const std::string& text) {
    constexpr std::array<std::string_view, 8> flags{"1", "0",  "true", "false",
                                                    "t", "no", "yes",  "y"};
    return std::ranges::find(flags, lowercase(text)) != flags.end();
  }

  const HostConfiguration& configuration_;
  const Bundle& host_;
  const Dictionary& file_;
  Findings& findings_;
};

}  // namespace

void examineKeys(const HostConfiguration& configuration, const Dictionary& file,
                 Findings& findings) {
  KeyExaminer(configuration, file, findings).examine();
}

}  // namespace qbdkr
