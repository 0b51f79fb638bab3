# Tests that run sources of the macOS side, as the type check compiled them, over doubles of the system's
# calls. The rest comes from the archive of Linux.

# Numbers, texts and property lists.
qbdkr_add_tests(MacOSLogicTests LABEL macos SOURCES
  NativeRealMacOSTest.cpp
  NativeUnicodeMacOSTest.cpp
  PropertyListConversionMacOSTest.cpp
  doubles/CFCollections.cpp
  doubles/CFObject.cpp
  doubles/CFPropertyList.cpp
  doubles/CFString.cpp
  doubles/CFURL.cpp
  doubles/CFValues.cpp
  doubles/XLocale.cpp
  "$<FILTER:$<TARGET_OBJECTS:MacOSTypeCheck>,INCLUDE,/(CoreFoundationText|NativeReal|NativeUnicode|PropertyListConversion)MacOS>")
target_include_directories(MacOSLogicTests BEFORE PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/declarations)
target_link_libraries(MacOSLogicTests PRIVATE QBDKREverything)

# Events, run loop and workspace.
set(event_objects "(Answer|EventDescriptor|EventPort|NativeLoop|NativeTransport|NativeWorkspace|ReplyPort|StartedRequests)MacOS\\.cpp")
add_library(MacOSEventDoubles OBJECT
  doubles/AppleEventManager.cpp
  doubles/AutoreleasePools.cpp
  doubles/CFObject.cpp
  doubles/CFRunLoop.cpp
  doubles/Darwin.cpp
  doubles/LaunchServices.cpp
  doubles/Mach.cpp
  doubles/Processes.cpp)
target_include_directories(MacOSEventDoubles BEFORE PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/declarations ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include
  ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(MacOSEventDoubles PRIVATE QBDKRWarnings)
target_compile_options(MacOSEventDoubles PRIVATE -O0)
set(event_side
  $<TARGET_OBJECTS:MacOSEventDoubles> $<FILTER:$<TARGET_OBJECTS:MacOSTypeCheck>,INCLUDE,${event_objects}>)
qbdkr_add_tests(MacOSEventTests TIMEOUT 60 LABEL macos SOURCES
  EventsTest.cpp LoopTest.cpp WorkspaceTest.cpp ${event_side})
target_include_directories(MacOSEventTests BEFORE PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/declarations)
target_link_libraries(MacOSEventTests PRIVATE QBDKREverything)

# The suite of every run loop, over the doubles as well, but for the tests that take a second each.
add_executable(MacOSLoopContract ../platform/Loop/RunLoopTest.cpp ${event_side})
target_link_libraries(MacOSLoopContract PRIVATE
  QBDKREverything TestSupport GTest::gtest_main QBDKRWarnings)
target_compile_options(MacOSLoopContract PRIVATE -O0)
add_test(NAME MacOSLoopContract COMMAND MacOSLoopContract
  --gtest_filter=-*.SleepsWhileNothingIsDue/*:*.EmbeddedLoopInsideATickWakesForAnotherTimer*)
