#pragma once

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Returns the names in the host's bundle identifier, such as com.Acme.PhotoTool, and its product
// identifier. Any thread. Blocks for files only on first use of the main bundle.
class QBDKR_EXPORT QBHPConfig {
 public:
  QBHPConfig() = delete;

  // Returns the maker's part of the bundle identifier in lower case: acme. Cached. Throws
  // RangeException for an identifier of fewer than two parts. Absent, and not cached, without an
  // identifier.
  static String brandName();

  // Returns the maker's and the product's part in lower case: acme phototool. Cached. Throws
  // RangeException for an identifier of fewer than three parts. "(null) (null)" without an
  // identifier.
  static String helperName();

  // Returns the product identifier, the main bundle's "PID". A number reads as its digits. Absent
  // if the key is missing, or its value is a date, data or a container.
  static String helperPID();
};

}  // namespace qbdkr
