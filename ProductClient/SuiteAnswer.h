#pragma once

#include <ClientComm/Answer.h>
#include <ClientComm/QBHPSuiteInfo.h>
#include <ClientComm/TextValue.h>

namespace qbdkr {

// Reads the helper agent's answer URL###WIDTH###HEIGHT, and ignores further fields. An absent
// answer has no URL and the size 0. Throws RangeException for fewer than three fields.
[[nodiscard]] QBHPSuiteInfo suiteInfoFrom(Text answer);

// Does the same with the answer to a request, and throws nothing: fewer fields are
// errAEEventNotHandled, and without memory the status is paramErr.
[[nodiscard]] Answer<QBHPSuiteInfo> suiteAnswerOf(const Answer<String>& answer);

}  // namespace qbdkr
