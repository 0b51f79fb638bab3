#pragma once

#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/TextValue.h>

#include "ClientComm/InfoKeys.h"

namespace qbdkr {

// Describes a switch that the helper agent reads from the host's bundle.
struct BundleSwitch {
  std::string_view key;
  bool valueWhenMissing;
};
inline constexpr BundleSwitch tipsSwitch{infokey::tipsEnable, true};
inline constexpr BundleSwitch advertisingSwitch{infokey::enableAD, false};

// Writes the switches to the files of a host's bundle: flags in its property list, "1" or "0" in
// the strings file of the current language. A file that has the value already is not touched. One
// that is missing, unreadable, read-only or locked by another writer for 0.1 s stays as it is; no
// error is reported. Every call blocks for the files. Any thread.
class BundleSwitches {
 public:
  explicit BundleSwitches(Bundle host);

  // Return the files of any bundle, as QBHPHelperCommunicate does. The language is that of the
  // process.
  [[nodiscard]] String stringsFile(Text bundlePath) const;
  [[nodiscard]] String propertyListFile(Text bundlePath) const;

  void saveToPropertyList(const BundleSwitch& which, bool value) const;
  void saveToStringsFile(const BundleSwitch& which, bool value) const;
  // Saves to the property list, then to the strings file.
  void set(const BundleSwitch& which, bool value) const;

  // Updates the property list from the information dictionary, in which localized texts come first.
  // Adds a missing switch.
  void bringInLine(const BundleSwitch& which) const;

 private:
  Bundle host_;
};

}  // namespace qbdkr
