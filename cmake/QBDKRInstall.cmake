# What is installed: the two libraries, their public headers, and the files by which CMake and
# pkg-config find them.
include(CMakePackageConfigHelpers)

install(TARGETS ClientComm QBDKRProductClient
  EXPORT QBDKRProductClientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/QBDKRProductClient)
install(FILES
    Platform/AppleEvent.h
    Platform/Bundle.h
    Platform/Export.h
    Platform/Files.h
    Platform/Log.h
    Platform/ProcessTable.h
    Platform/PropertyList.h
    Platform/RunLoop.h
    Platform/Status.h
    Platform/Text.h
    Platform/UserDefaults.h
    Platform/Workspace.h
  DESTINATION ${headers}/Platform)
install(FILES
    ClientComm/ClassRegistry.h
    ClientComm/Exceptions.h
    ClientComm/QBHPAppEventBase.h
    ClientComm/QBHPAppleEventProcesser.h
    ClientComm/QBHPAppleEventSender.h
    ClientComm/QBHPConfig.h
    ClientComm/QBHPCustomerServiceByHelepr.h
    ClientComm/QBHPGetDataByHelper.h
    ClientComm/QBHPHelperControl.h
    ClientComm/QBHPHelperError.h
    ClientComm/QBHPProcessList.h
    ClientComm/QBHPSuiteInfo.h
    ClientComm/QBHPUpgradeByHelper.h
    ClientComm/QBHPUploadByHelper.h
    ClientComm/QBHPVersion.h
    ClientComm/Selector.h
    ClientComm/Text.h
  DESTINATION ${headers}/ClientComm)
install(FILES ProductClient/QBHPHelper.h ProductClient/QBHPHelperCommunicate.h
  DESTINATION ${headers}/ProductClient)

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
  DESTINATION ${package_dir})

# Relative, so that an installation may be moved, or made under another prefix than configured.
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
foreach(library IN ITEMS ClientComm QBDKRProductClient)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
