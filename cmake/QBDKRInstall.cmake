# Installs the two libraries, their public headers, and the files by which CMake and pkg-config find
# them. On macOS the libraries are frameworks. A component is the contents of one package, see
# QBDKRPackages.cmake; all of them together are installed by default.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QBDKRProductClient)

# qbdkr_install_libraries(EXPORT COMPONENT DEVELOPMENT_COMPONENT TARGETS...)
function(qbdkr_install_libraries export component development)
  install(TARGETS ${ARGN}
    EXPORT ${export}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT ${development}
    FRAMEWORK DESTINATION Library/Frameworks COMPONENT ${component})
  install(EXPORT ${export} NAMESPACE QBDKRProductClient:: DESTINATION ${package_dir} COMPONENT ${development})
endfunction()

qbdkr_install_libraries(QBDKRProductClientTargets libraries development ClientComm QBDKRProductClient)
if(TARGET QBDKRProductClientObjC)
  qbdkr_install_libraries(QBDKRProductClientObjCTargets objc objcdevelopment QBDKRProductClientObjC)
endif()

# A framework carries its own headers. A host that does not use frameworks needs one folder with both.
# The headers of the Objective-C face stay beside them on a Mac as well, with a module map of their own.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN QBDKRProductClientObjC EXCLUDE)
if(QBDKR_HAS_OBJECTIVE_C)
  install(DIRECTORY include/QBDKRProductClientObjC DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT objcdevelopment
    FILES_MATCHING PATTERN "*.h" PATTERN "module.modulemap")
endif()

configure_package_config_file(cmake/QBDKRProductClientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QBDKRProductClientConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QBDKRProductClientConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QBDKRProductClientConfig.cmake
    ${PROJECT_BINARY_DIR}/QBDKRProductClientConfigVersion.cmake
    cmake/QBDKRBundle.cmake
    cmake/QBDKRPropertyList.cmake
    cmake/QBDKRRuntimeLibraries.cmake
  DESTINATION ${package_dir} COMPONENT development)

if(APPLE)
  return()  # frameworks are not linked by name and path
endif()
# Relative: an installation may be moved, or made under another prefix than configured.
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(library IN ITEMS ClientComm QBDKRProductClient)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
