# What the two libraries have in common.
function(qbdkr_shared_library target)
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}  # before 1.0 each minor version breaks
    EXPORT_NAME ${target}
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    # Each finds the other beside itself, in the build tree, when installed and inside a bundle.
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH $ORIGIN)
  add_library(QBDKRProductClient::${target} ALIAS ${target})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/QBDKRProductClient>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:QBDKRWarnings>)
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT QBDKR_SANITIZERS)
    target_link_options(${target} PRIVATE -Wl,-z,defs -Wl,--as-needed)
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # Threads of the framework outlast a dlclose().
    target_link_options(${target} PRIVATE -Wl,-z,nodelete)
  endif()
endfunction()
