# The common setup of the two libraries. On macOS each is a framework of version A, which programs
# carry in their own Frameworks folder; elsewhere it is a versioned shared library. The public headers
# of TARGET are those of include/TARGET, included as <TARGET/NAME.h> on both systems.
#
#   qbdkr_shared_library(TARGET [EXPORTED <version script of what it exports>])
function(qbdkr_shared_library target)
  cmake_parse_arguments(PARSE_ARGV 1 LIBRARY "" "EXPORTED" "")
  if(NOT LIBRARY_EXPORTED)
    set(LIBRARY_EXPORTED ${PROJECT_SOURCE_DIR}/cmake/Exported.map)
  endif()
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}  # before 1.0 each minor version breaks
    EXPORT_NAME ${target}
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    # Each finds the other beside itself: in the build tree, when installed, and inside a bundle.
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH $ORIGIN)
  add_library(QBDKRProductClient::${target} ALIAS ${target})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:QBDKRWarnings>)
  if(APPLE)
    qbdkr_framework(${target})
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT QBDKR_SANITIZERS)
    target_link_options(${target} PRIVATE -Wl,-z,defs -Wl,--as-needed)
  endif()
  if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    # Threads of the framework outlast a dlclose().
    target_link_options(${target} PRIVATE -Wl,-z,nodelete)
    target_link_options(${target} PRIVATE -Wl,--version-script=${LIBRARY_EXPORTED})
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${LIBRARY_EXPORTED})
  endif()
endfunction()

# qbdkr_build_small(TARGET [FAST <sources>...])
#
# Has a release build make one of the two libraries, or its objects, small: each bundle carries its
# own copies, and what the framework does is mostly waiting. CMake's own choice, -O3, is 2.5 times as
# large. The FAST sources are compiled for speed, apart from the others: their loops are a good part
# of the instructions of a request or of a property list (scripts/instructions).
function(qbdkr_build_small target)
  cmake_parse_arguments(PARSE_ARGV 1 SMALL "" "" "FAST")
  set(release $<CONFIG:Release>)
  target_compile_options(${target} PRIVATE $<${release}:-Os>)
  if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    return()
  endif()
  target_compile_options(${target} PRIVATE $<${release}:-ffunction-sections> $<${release}:-fdata-sections>)
  set_source_files_properties(${SMALL_FAST} PROPERTIES COMPILE_OPTIONS "$<${release}:-O2;-fno-lto>")
  set_target_properties(${target} PROPERTIES
    INTERPROCEDURAL_OPTIMIZATION_RELEASE ${QBDKR_OPTIMIZES_WHILE_LINKING})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "SHARED_LIBRARY")
    # Calls inside a library go to its own functions, which nobody replaces, without a table.
    # Packed relocations would save another 14 kB, and need a glibc that not every desktop has yet.
    target_link_options(${target} PRIVATE $<${release}:-Wl,-O1,--gc-sections,-Bsymbolic-functions>)
  endif()
endfunction()

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  include(CheckIPOSupported)
  check_ipo_supported(RESULT QBDKR_OPTIMIZES_WHILE_LINKING OUTPUT refusal LANGUAGES CXX)
  if(NOT QBDKR_OPTIMIZES_WHILE_LINKING)
    message(STATUS "Release builds are larger: this compiler cannot optimize while it links")
  endif()
  unset(refusal)
endif()

# The parts of a framework: Info.plist, the headers and the module map. Its install name is the path
# by which a program inside a bundle finds it.
function(qbdkr_framework target)
  set(modulemap ${CMAKE_CURRENT_BINARY_DIR}/${target}.modulemap/module.modulemap)
  set(QBDKR_FRAMEWORK ${target})
  set(QBDKR_FRAMEWORK_HEADERS "")
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/${target}/*.h)
  foreach(header IN LISTS headers)
    get_filename_component(name ${header} NAME)
    string(APPEND QBDKR_FRAMEWORK_HEADERS "  header \"${name}\"\n")
    target_sources(${target} PRIVATE ${header})
    set_source_files_properties(${header} PROPERTIES MACOSX_PACKAGE_LOCATION Headers)
  endforeach()
  configure_file(${PROJECT_SOURCE_DIR}/cmake/module.modulemap.in ${modulemap} @ONLY)
  target_sources(${target} PRIVATE ${modulemap})
  set_source_files_properties(${modulemap} PROPERTIES MACOSX_PACKAGE_LOCATION Modules)
  set_target_properties(${target} PROPERTIES
    FRAMEWORK ON
    FRAMEWORK_VERSION A
    MACOSX_FRAMEWORK_INFO_PLIST ${PROJECT_SOURCE_DIR}/cmake/Framework.Info.plist.in
    MACOSX_FRAMEWORK_IDENTIFIER qbdkr.${target}
    MACOSX_FRAMEWORK_BUNDLE_VERSION ${PROJECT_VERSION}
    MACOSX_FRAMEWORK_SHORT_VERSION_STRING ${PROJECT_VERSION}
    INSTALL_NAME_DIR "@executable_path/../Frameworks"
    BUILD_WITH_INSTALL_NAME_DIR ON
    INSTALL_RPATH "")
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E create_symlink Versions/Current/Modules
            $<TARGET_BUNDLE_DIR:${target}>/Modules
    VERBATIM)
endfunction()
