#pragma once

#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Reads the helper agent's answer URL###WIDTH###HEIGHT, and ignores further fields. An absent
// answer has no URL and the size 0. Throws RangeException for fewer than three fields.
[[nodiscard]] QBHPSuiteInfo suiteInfoFrom(Text answer);

}  // namespace qbdkr
