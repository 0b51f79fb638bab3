#include "macos/doubles/AutoreleasePools.h"

#include "Platform/Base/AutoreleasePoolMacOS.h"

namespace {

thread_local int open = 0;
thread_local int all = 0;

}  // namespace

void* objc_autoreleasePoolPush(void) {
  ++open;
  ++all;
  return nullptr;
}

void objc_autoreleasePoolPop(void*) { --open; }

int doubles::openPools() { return open; }
int doubles::poolsSoFar() { return all; }
