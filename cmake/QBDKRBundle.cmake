# Application bundles.
#
#   qbdkr_add_bundle(TARGET
#     NAME       <name of the bundle, without ".app">
#     DIRECTORY  <where it is made, in the build tree>
#     INFO       <Info.plist, or a template of one, which sees the variables of the caller>
#     LIBRARIES  <targets of the shared libraries that go along>...
#     [RESOURCES <files or folders that go among the resources>...]
#     [HELPER    <target of another bundle that goes among the resources>])
#
# makes NAME.app from an executable target, with the shared libraries it needs inside: the bundle can
# be copied anywhere. The bundle's path is the target property QBDKR_BUNDLE_PATH.
function(qbdkr_add_bundle target)
  cmake_parse_arguments(BUNDLE "" "NAME;DIRECTORY;INFO;HELPER" "LIBRARIES;RESOURCES" ${ARGN})
  set(bundle ${BUNDLE_DIRECTORY}/${BUNDLE_NAME}.app)
  set(contents ${bundle}/Contents)
  set(info ${CMAKE_CURRENT_BINARY_DIR}/${target}.Info.plist)
  configure_file(${BUNDLE_INFO} ${info} @ONLY)
  set(executables Linux)
  if(APPLE)
    set(executables MacOS)
  endif()
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${contents}/${executables}
    OUTPUT_NAME ${BUNDLE_NAME}
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN/../Frameworks"
    QBDKR_BUNDLE_PATH ${bundle})

  set(libraries)
  foreach(library IN LISTS BUNDLE_LIBRARIES)
    if(APPLE)  # copied by the system's own tool: a framework is full of links
      list(APPEND libraries COMMAND cp -RP $<TARGET_BUNDLE_DIR:${library}> ${contents}/Frameworks/)
    else()
      list(APPEND libraries COMMAND ${CMAKE_COMMAND} -E copy_if_different
           $<TARGET_SONAME_FILE:${library}> ${contents}/Frameworks)
    endif()
  endforeach()
  set(resources)
  foreach(resource IN LISTS BUNDLE_RESOURCES)
    get_filename_component(name ${resource} NAME)
    if(IS_DIRECTORY ${resource})
      list(APPEND resources COMMAND ${CMAKE_COMMAND} -E copy_directory ${resource}
           ${contents}/Resources/${name})
    else()
      list(APPEND resources COMMAND ${CMAKE_COMMAND} -E copy ${resource} ${contents}/Resources/)
    endif()
  endforeach()
  if(BUNDLE_HELPER)
    get_target_property(helper ${BUNDLE_HELPER} QBDKR_BUNDLE_PATH)
    get_filename_component(helper_name ${helper} NAME)
    add_dependencies(${target} ${BUNDLE_HELPER})
    list(APPEND resources
         COMMAND ${CMAKE_COMMAND} -E rm -rf ${contents}/Resources/${helper_name}
         COMMAND cp -RP ${helper} ${contents}/Resources/${helper_name})
  endif()
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E make_directory ${contents}/Resources ${contents}/Frameworks
    COMMAND ${CMAKE_COMMAND} -E copy ${info} ${contents}/Info.plist
    ${libraries}
    ${resources}
    VERBATIM COMMAND_EXPAND_LISTS)
endfunction()
