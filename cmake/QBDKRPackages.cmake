# Packages for Debian and its relatives: "cpack" in a build directory, or scripts/package. A package is one component of
# the installation, taken from the build as it is.
if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux" OR NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qbdkr-client)
set(CPACK_PACKAGE_CONTACT "QBDKRProductClient developers <developers@qbdkr.example>")
set(CPACK_PACKAGE_VENDOR "QBDKRProductClient developers")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
# Finishes the contents: documentation, compression, the symbols file.
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)
set(CPACK_DEBIAN_FILES ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_STRIP ${CMAKE_STRIP})

# qbdkr_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS...])
#
# The first line of the description is the synopsis.
macro(qbdkr_package component name section description)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(depends ${ARGN})  # a parameter of a macro is no list
  list(JOIN depends ", " depends)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
  # Without programs there are no dependencies to find out.
  string(COMPARE NOTEQUAL ${section} libdevel CPACK_DEBIAN_${upper}_PACKAGE_SHLIBDEPS)
endmacro()

set(CPACK_COMPONENTS_ALL)
set(same "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(about "A desktop application installs the helper agent that it carries, launches
it, keeps it alive, and drives it over the session bus.")
qbdkr_package(libraries libqbdkr-client0 libs "client side of a helper agent\n${about}")
qbdkr_package(development libqbdkr-client-dev libdevel
  "client side of a helper agent, development files\n${about}\n
This package has what hosts and helper agents are built with."
  "libqbdkr-client0 ${same}" libsystemd-dev libexpat1-dev libutf8proc-dev)
set(packages_of_libraries LIBRARIES)
if(TARGET QBDKRProductClientObjC)
  qbdkr_package(objc libqbdkr-client-objc0 libs
    "client side of a helper agent, for Objective-C\n${about}\n
This package has the classes for hosts and helper agents in Objective-C."
    "libqbdkr-client0 ${same}")
  qbdkr_package(objcdevelopment libqbdkr-client-objc-dev libdevel
    "client side of a helper agent, development files for Objective-C\n${about}\n
This package has what hosts and helper agents in Objective-C are built with."
    "libqbdkr-client-objc0 ${same}" "libqbdkr-client-dev ${same}" libgnustep-base-dev "gobjc | gobjc++")
  list(APPEND packages_of_libraries OBJC)
endif()
if(TARGET qbhp)
  qbdkr_package(tool qbhp devel
    "companion tool of helper agents and their hosts
It lists which applications run and can be reached, sends them events,
watches the bus, checks helper agents, and finds out why a host has none.")
endif()
if(QBDKR_EXAMPLES)
  qbdkr_package(samples qbdkr-client-examples misc
    "sample host and helper agent
A host that carries its helper agent, as bundles that run, and their sources.")
endif()
# The symbols of a library name the version that a program needs.
set(CPACK_QBDKR_SYMBOLS ${PROJECT_BINARY_DIR}/symbols)
foreach(upper IN LISTS packages_of_libraries)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${CPACK_QBDKR_SYMBOLS}/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}/symbols)
endforeach()
include(CPack)
