# Installs the two libraries, their public headers, and the files by which CMake and pkg-config find
# them. On macOS the libraries are frameworks.
include(CMakePackageConfigHelpers)

set(libraries ClientComm QBDKRProductClient)
if(TARGET QBDKRProductClientObjC)
  list(APPEND libraries QBDKRProductClientObjC)
endif()
install(TARGETS ${libraries}
  EXPORT QBDKRProductClientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FRAMEWORK DESTINATION Library/Frameworks)

# A framework carries its own headers. A host that does not use frameworks needs one folder with both.
# The headers of the Objective-C face stay beside them on a Mac as well, with a module map of their own.
set(without_objective_c PATTERN QBDKRProductClientObjC EXCLUDE)
if(QBDKR_HAS_OBJECTIVE_C)
  set(without_objective_c)
endif()
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h" PATTERN "module.modulemap" ${without_objective_c})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QBDKRProductClient)
install(EXPORT QBDKRProductClientTargets NAMESPACE QBDKRProductClient:: DESTINATION ${package_dir})
configure_package_config_file(cmake/QBDKRProductClientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QBDKRProductClientConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QBDKRProductClientConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QBDKRProductClientConfig.cmake
    ${PROJECT_BINARY_DIR}/QBDKRProductClientConfigVersion.cmake
    cmake/QBDKRBundle.cmake
    cmake/QBDKRPropertyList.cmake
  DESTINATION ${package_dir})

if(APPLE)
  return()  # frameworks are not linked by name and path
endif()
# Relative: an installation may be moved, or made under another prefix than configured.
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(library IN ITEMS ClientComm QBDKRProductClient)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
