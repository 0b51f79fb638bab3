#pragma once

#include <ClientComm/Export.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// What the host's identifier and information dictionary say of it. For an identifier such as
// com.Acme.PhotoTool. Any thread; reads no file after the first use of the main bundle.
class QBDKR_EXPORT QBHPConfig {
 public:
  QBHPConfig() = delete;

  // The maker's part of the bundle identifier in lower case: acme. Kept from the first call on.
  // Throws RangeException for an identifier of fewer than two parts; absent, and not kept, without
  // one.
  static String brandName();

  // The maker's and the product's part in lower case: acme phototool. Kept from the first call on.
  // Throws RangeException for an identifier of fewer than three parts; "(null) (null)" without one.
  static String helperName();

  // The product identifier, the main bundle's "PID". A number reads as its digits. Absent if the
  // key is missing or of another type. Not cached.
  static String helperPID();
};

}  // namespace qbdkr
