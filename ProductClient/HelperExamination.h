#pragma once

#include <string>
#include <string_view>

#include <ClientComm/Bundle.h>
#include <ClientComm/TextValue.h>

#include "ProductClient/Findings.h"

namespace qbdkr {

// One copy of the helper agent's bundle: the one among the resources, or the installed one.
struct HelperCopy {
  std::string path;
  std::string_view prefix;  // of the subjects: "helper" or "installed"
  // How bad a fault of this copy is.
  Finding::Severity severity = Finding::Severity::error;
  // The remedy for any fault; empty if each has its own.
  std::string remedy = {};
  // The bundle around a copy that is yet to be installed elsewhere; else empty.
  std::string host = {};
};

// Examines a copy: its information, its identifier, its executable and its libraries. The
// identifier is the one that the host names, if it names one. True if nothing keeps the copy from
// being executed and reached.
bool examineHelperCopy(const HelperCopy& copy, const String& identifier, Findings& findings);

// Examines the executable that a bundle names, and its libraries. True if nothing keeps it from
// being executed.
bool examineExecutable(const Bundle& bundle, const HelperCopy& copy, Findings& findings);

}  // namespace qbdkr
