#pragma once

#include <memory>
#include <string>

#include "support/HostProcess.h"
#include "support/Scene.h"
#include "support/TestBundle.h"

namespace qbdkr::test {

// Sets up a test with a host or a helper agent in Objective-C.
class ObjectiveCScene : public Scene {
 public:
  // Turns the leak sanitizer off in its processes: GNUstep never frees what it makes once. A test
  // counts the objects that calls leave behind.
  ObjectiveCScene();

  // Makes a host in Objective-C, with the usual helper agent, in C++, in its resources.
  TestBundle makeHostInObjectiveC();
  // Puts the helper agent in Objective-C into the resources of a host in C++.
  TestBundle makeHostOfHelperInObjectiveC();
};

}  // namespace qbdkr::test
