#pragma once

#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/TextValue.h>

#include "ClientComm/InfoKeys.h"

namespace qbdkr {

// A switch that reaches the helper agent through the host's bundle.
struct BundleSwitch {
  std::string_view key;
  bool valueWhenMissing;
};
inline constexpr BundleSwitch tipsSwitch{infokey::tipsEnable, true};
inline constexpr BundleSwitch advertisingSwitch{infokey::enableAD, false};

// Writes the switches into the files of a host's bundle: flags in its property list, "1" or "0" in
// the strings file of the current language. A file that has the value already is not touched. One
// that is missing, unreadable, read-only or locked by another writer for 0.1 s stays as it is,
// silently. Every call blocks for the files. Any thread.
class BundleSwitches {
 public:
  explicit BundleSwitches(Bundle host);

  // The files of any bundle, as QBHPHelperCommunicate says. The language is that of the process.
  [[nodiscard]] String stringsFile(Text bundlePath) const;
  [[nodiscard]] String propertyListFile(Text bundlePath) const;

  void saveToPropertyList(const BundleSwitch& which, bool value) const;
  void saveToStringsFile(const BundleSwitch& which, bool value) const;
  // Both, in this order.
  void set(const BundleSwitch& which, bool value) const;

  // Brings the property list in line with the information dictionary, where localized texts come
  // first. Adds a missing switch.
  void bringInLine(const BundleSwitch& which) const;

 private:
  Bundle host_;
};

}  // namespace qbdkr
