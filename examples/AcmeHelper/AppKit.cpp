#include "AppKit.h"

namespace acme {

void joinAppKit() {}

}  // namespace acme
