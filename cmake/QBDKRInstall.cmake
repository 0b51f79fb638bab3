# Installs the two libraries, their public headers, and the files by which CMake and pkg-config find
# them. On macOS the libraries are frameworks.
include(CMakePackageConfigHelpers)

install(TARGETS ClientComm QBDKRProductClient
  EXPORT QBDKRProductClientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FRAMEWORK DESTINATION Library/Frameworks)

# A framework carries its own headers. A host that does not use frameworks needs one folder with both.
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

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
