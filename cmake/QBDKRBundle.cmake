# Application bundles.
#
#   qbdkr_add_bundle(TARGET
#     NAME       <name of the bundle, without ".app">
#     DIRECTORY  <where it is made, in the build tree>
#     INFO       <Info.plist, or a template of one, which sees BUNDLE_NAME and the variables of the caller>
#     LIBRARIES  <targets of the shared libraries that go along, or NONE>...
#     [RESOURCES <files or folders that go among the resources>...]
#     [HELPER    <target of another bundle that goes among the resources>]
#     [SELF_CONTAINED]
#     [UNCHECKED])
#
# makes NAME.app from an executable target, with the shared libraries it needs inside: the bundle can
# be copied anywhere. The bundle's path is the target property QBDKR_BUNDLE_PATH.
#
# The bundle is complete when the target is built, and follows all of its inputs: a change of one, or of a file in a
# folder among the resources, links the executable anew, and then makes Info.plist, Resources and Frameworks anew. A
# bundle with HELPER follows the executable of that target, and thus all inputs of the helper agent. A command that the
# caller adds with add_custom_command(TARGET ... POST_BUILD) afterwards finds the complete bundle, also after each change.
# A change of a file's mode alone is not noticed.
#
# On a Mac the bundle is signed ad hoc, the libraries inside first. A signature of your own, made by such a command with
# "codesign --force", replaces that one; a command that changes the bundle must sign it again.
#
# SELF_CONTAINED adds the libraries of the machine that the program and its libraries load, but for those of every
# desktop. A bundle with HELPER asks the same of the helper agent. On a Mac it adds nothing.
#
# A mistake in the arguments, or in the keys of Info.plist, ends the configuration with its cause. UNCHECKED leaves out
# the checks of Info.plist, for a bundle that breaks their rules on purpose.
cmake_policy(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/QBDKRPropertyList.cmake)

# The parameter has a prefix, as the template sees it too.
function(qbdkr_add_bundle BUNDLE_TARGET)
  cmake_parse_arguments(PARSE_ARGV 1 BUNDLE
    "SELF_CONTAINED;UNCHECKED" "NAME;DIRECTORY;INFO;HELPER" "LIBRARIES;RESOURCES")
  qbdkr_check_bundle_arguments()
  list(REMOVE_ITEM BUNDLE_LIBRARIES NONE)
  cmake_path(ABSOLUTE_PATH BUNDLE_DIRECTORY BASE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} NORMALIZE)
  string(REGEX REPLACE "/$" "" BUNDLE_DIRECTORY "${BUNDLE_DIRECTORY}")
  cmake_path(ABSOLUTE_PATH BUNDLE_INFO BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
  qbdkr_configure_bundle_info("${CMAKE_CURRENT_BINARY_DIR}/${BUNDLE_TARGET}.Info.plist")

  set(info ${CMAKE_CURRENT_BINARY_DIR}/${BUNDLE_TARGET}.Info.plist)
  set(bundle ${BUNDLE_DIRECTORY}/${BUNDLE_NAME}.app)
  get_property(bundles GLOBAL PROPERTY QBDKR_BUNDLE_PATHS)
  if(bundle IN_LIST bundles)
    qbdkr_refuse_bundle("another target makes ${bundle}: give one of them another NAME or DIRECTORY")
  endif()
  set_property(GLOBAL APPEND PROPERTY QBDKR_BUNDLE_PATHS ${bundle})

  set(contents ${bundle}/Contents)
  set(executables Linux)
  if(APPLE)
    set(executables MacOS)
  endif()
  set_target_properties(${BUNDLE_TARGET} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${contents}/${executables}
    OUTPUT_NAME ${BUNDLE_NAME}
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH "$ORIGIN/../Frameworks"
    QBDKR_BUNDLE_PATH ${bundle}
    QBDKR_BUNDLE_SELF_CONTAINED ${BUNDLE_SELF_CONTAINED})

  set(inputs ${info})
  set(copies)
  set(signatures)
  foreach(library IN LISTS BUNDLE_LIBRARIES)
    list(APPEND inputs $<TARGET_FILE:${library}>)
    add_dependencies(${BUNDLE_TARGET} ${library})  # a framework's folder in a command does not add one
    if(APPLE)  # copied by the system's own tool: a framework is full of links
      list(APPEND copies COMMAND cp -RP $<TARGET_BUNDLE_DIR:${library}> ${contents}/Frameworks/)
      list(APPEND signatures COMMAND codesign --force --sign -
           ${contents}/Frameworks/$<TARGET_BUNDLE_DIR_NAME:${library}>)
    else()
      list(APPEND copies COMMAND ${CMAKE_COMMAND} -E copy
           $<TARGET_SONAME_FILE:${library}> ${contents}/Frameworks/)
    endif()
  endforeach()

  if(BUNDLE_SELF_CONTAINED AND NOT APPLE)
    qbdkr_contain_libraries(${contents}/Frameworks list_of_libraries copy_of_libraries)
    list(APPEND inputs ${list_of_libraries})
    list(APPEND copies ${copy_of_libraries})
  endif()

  set(names)
  foreach(resource IN LISTS BUNDLE_RESOURCES)
    set(given ${resource})
    cmake_path(ABSOLUTE_PATH resource BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR} NORMALIZE)
    string(REGEX REPLACE "/$" "" resource "${resource}")
    cmake_path(GET resource FILENAME name)
    qbdkr_bundle_resource_inputs("${given}" ${resource} resource_inputs)
    list(APPEND inputs ${resource_inputs})
    list(APPEND names ${name})
    if(IS_DIRECTORY ${resource})  # "cp" keeps links, which "cmake -E" follows
      list(APPEND copies
           COMMAND ${CMAKE_COMMAND} -E make_directory ${contents}/Resources/${name}
           COMMAND cp -RP ${resource}/. ${contents}/Resources/${name}/)
    else()
      list(APPEND copies COMMAND ${CMAKE_COMMAND} -E copy ${resource} ${contents}/Resources/)
    endif()
  endforeach()

  if(BUNDLE_HELPER)
    get_target_property(helper ${BUNDLE_HELPER} QBDKR_BUNDLE_PATH)
    cmake_path(GET helper FILENAME name)
    list(APPEND names ${name})
    # A change in the helper agent's bundle links its executable anew.
    list(APPEND inputs $<TARGET_FILE:${BUNDLE_HELPER}>)
    add_dependencies(${BUNDLE_TARGET} ${BUNDLE_HELPER})
    list(APPEND copies COMMAND cp -RP ${helper} ${contents}/Resources/${name})
  endif()
  qbdkr_check_resource_names(${names})
  if(APPLE)  # last, as it seals what is inside; the helper agent comes with the signature of its own build
    list(APPEND signatures COMMAND codesign --force --sign - ${bundle})
  endif()

  set_property(TARGET ${BUNDLE_TARGET} APPEND PROPERTY LINK_DEPENDS ${inputs})
  add_custom_command(TARGET ${BUNDLE_TARGET} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${contents}/Resources ${contents}/Frameworks
    COMMAND ${CMAKE_COMMAND} -E make_directory ${contents}/Resources ${contents}/Frameworks
    COMMAND ${CMAKE_COMMAND} -E copy ${info} ${contents}/Info.plist
    ${copies}
    ${signatures}
    VERBATIM COMMAND_EXPAND_LISTS)
endfunction()

# The functions below are parts of qbdkr_add_bundle(), and see its BUNDLE_ variables.

# Ends the configuration. The space keeps CMake from breaking the line.
function(qbdkr_refuse_bundle cause)
  message(FATAL_ERROR " qbdkr_add_bundle(${BUNDLE_TARGET}): ${cause}")
endfunction()

function(qbdkr_check_bundle_arguments)
  set(keywords NAME DIRECTORY INFO LIBRARIES RESOURCES HELPER SELF_CONTAINED UNCHECKED)
  if(NOT TARGET ${BUNDLE_TARGET})
    qbdkr_refuse_bundle("TARGET is no target: call add_executable(${BUNDLE_TARGET} ...) before")
  endif()
  get_target_property(type ${BUNDLE_TARGET} TYPE)
  get_target_property(imported ${BUNDLE_TARGET} IMPORTED)
  get_target_property(alias ${BUNDLE_TARGET} ALIASED_TARGET)
  if(NOT type STREQUAL "EXECUTABLE" OR imported OR alias)
    qbdkr_refuse_bundle("TARGET is no executable that this project builds: name a target of add_executable()")
  endif()
  get_target_property(directory ${BUNDLE_TARGET} BINARY_DIR)
  if(NOT directory STREQUAL CMAKE_CURRENT_BINARY_DIR)
    qbdkr_refuse_bundle("TARGET was made in another directory: call qbdkr_add_bundle() beside its add_executable()")
  endif()
  get_target_property(bundle ${BUNDLE_TARGET} QBDKR_BUNDLE_PATH)
  if(bundle)
    qbdkr_refuse_bundle("TARGET makes ${bundle} already: call it once for each target")
  endif()
  if(BUNDLE_UNPARSED_ARGUMENTS)
    list(GET BUNDLE_UNPARSED_ARGUMENTS 0 argument)
    qbdkr_nearest_word("${argument}" keyword ${keywords})
    if(keyword)
      qbdkr_refuse_bundle("the argument ${argument} is unknown: did you mean ${keyword}?")
    endif()
    list(JOIN keywords ", " keywords)
    qbdkr_refuse_bundle("the argument ${argument} is unknown: the arguments are ${keywords}")
  endif()
  foreach(keyword IN LISTS BUNDLE_KEYWORDS_MISSING_VALUES)
    qbdkr_refuse_bundle("${keyword} has no value: give it one, or check the variable that should hold it")
  endforeach()
  foreach(keyword IN ITEMS NAME DIRECTORY INFO LIBRARIES)
    if(NOT DEFINED BUNDLE_${keyword} OR BUNDLE_${keyword} STREQUAL "")
      qbdkr_refuse_bundle("${keyword} is missing: every bundle needs NAME, DIRECTORY, INFO and LIBRARIES")
    endif()
  endforeach()
  if(BUNDLE_NAME MATCHES "/|\\.app$")
    qbdkr_refuse_bundle("NAME ${BUNDLE_NAME} is no name of a bundle: leave out the directory and \".app\"")
  endif()
  if(BUNDLE_LIBRARIES STREQUAL "NONE")
    set(BUNDLE_LIBRARIES "")  # a program that has them in itself
  endif()
  foreach(library IN LISTS BUNDLE_LIBRARIES)
    if(NOT TARGET "${library}")
      qbdkr_hint_keyword("${library}" hint)
      qbdkr_refuse_bundle("LIBRARIES names ${library}, which is no target: name the target of a shared library${hint}")
    endif()
    get_target_property(type ${library} TYPE)
    if(NOT type STREQUAL "SHARED_LIBRARY")
      qbdkr_refuse_bundle("LIBRARIES names ${library}, which is no shared library: leave it out")
    endif()
  endforeach()
  if(BUNDLE_HELPER)
    if(NOT TARGET "${BUNDLE_HELPER}")
      qbdkr_refuse_bundle("HELPER names ${BUNDLE_HELPER}, which is no target: call add_executable(${BUNDLE_HELPER} ...) and qbdkr_add_bundle(${BUNDLE_HELPER} ...) before")
    endif()
    get_target_property(bundle ${BUNDLE_HELPER} QBDKR_BUNDLE_PATH)
    if(NOT bundle)
      qbdkr_refuse_bundle("HELPER names ${BUNDLE_HELPER}, which is no bundle yet: call qbdkr_add_bundle(${BUNDLE_HELPER} ...) before")
    endif()
    get_target_property(contained ${BUNDLE_HELPER} QBDKR_BUNDLE_SELF_CONTAINED)
    if(BUNDLE_SELF_CONTAINED AND NOT contained)
      qbdkr_refuse_bundle("HELPER names ${BUNDLE_HELPER}, which is not SELF_CONTAINED: write that into its call as well")
    endif()
  endif()
endfunction()

# Returns a file that changes with the libraries of the machine that LIBRARIES load, and the command that copies these and
# those of the program into the folder. The program gets a DT_RPATH in place of the DT_RUNPATH of today's linkers: this
# one counts for what its libraries load, and what those load, and before LD_LIBRARY_PATH.
function(qbdkr_contain_libraries folder out_list out_copy)
  set(script ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/QBDKRRuntimeLibraries.cmake)
  set(list ${CMAKE_CURRENT_BINARY_DIR}/${BUNDLE_TARGET}.libraries)
  set(files)
  set(copies)
  foreach(library IN LISTS BUNDLE_LIBRARIES)
    list(APPEND files $<TARGET_SONAME_FILE:${library}>)
    list(APPEND copies ${folder}/$<TARGET_SONAME_FILE_NAME:${library}>)
  endforeach()
  list(JOIN files "|" joined_files)
  list(JOIN copies "|" joined_copies)
  add_custom_command(OUTPUT ${list} DEPENDS ${files} ${script} DEPFILE ${list}.d
    COMMAND ${CMAKE_COMMAND} -DLIBRARIES=${joined_files} -DLIST=${list} -P ${script}
    COMMENT "Finding the libraries of the machine for ${BUNDLE_NAME}.app" VERBATIM)
  target_sources(${BUNDLE_TARGET} PRIVATE ${list})
  target_link_options(${BUNDLE_TARGET} PRIVATE LINKER:--disable-new-dtags)
  set(${out_list} ${list} PARENT_SCOPE)
  set(${out_copy} COMMAND ${CMAKE_COMMAND} -DLIBRARIES=${joined_copies} -DPROGRAM=$<TARGET_FILE:${BUNDLE_TARGET}>
      -DFOLDER=${folder} -P ${script} PARENT_SCOPE)
endfunction()

# A misspelled keyword passes for a value of the list before it.
function(qbdkr_hint_keyword word out)
  qbdkr_nearest_word("${word}" keyword NAME DIRECTORY INFO LIBRARIES RESOURCES HELPER SELF_CONTAINED UNCHECKED)
  if(keyword)
    set(keyword ", or did you mean the argument ${keyword}?")
  endif()
  set(${out} "${keyword}" PARENT_SCOPE)
endfunction()

# Returns the files that a resource consists of. For a folder also each folder in it: its time changes with every file
# that is added, removed or replaced, and with every link, which is copied without the file behind it.
function(qbdkr_bundle_resource_inputs given resource out)
  get_source_file_property(generated ${resource} GENERATED)
  if(generated)  # a source of the target, so that its rule runs before
    target_sources(${BUNDLE_TARGET} PRIVATE ${resource})
    set(${out} ${resource} PARENT_SCOPE)
    return()
  endif()
  # Looked for in each build: a resource that is gone is then refused here.
  string(REGEX REPLACE "([][*?])" "[\\1]" pattern "${resource}")
  file(GLOB found LIST_DIRECTORIES true CONFIGURE_DEPENDS ${pattern})
  if(NOT EXISTS ${resource})
    qbdkr_hint_keyword("${given}" hint)
    qbdkr_refuse_bundle("RESOURCES names ${given}, which does not exist: correct its path, which is relative to ${CMAKE_CURRENT_SOURCE_DIR}${hint}")
  endif()
  set(inputs ${resource})
  if(IS_DIRECTORY ${resource})
    file(GLOB_RECURSE found LIST_DIRECTORIES true CONFIGURE_DEPENDS ${pattern}/*)
    foreach(file IN LISTS found)
      if(IS_SYMLINK "${file}")
        continue()
      endif()
      if(NOT EXISTS "${file}")  # CMake's lists cannot hold the name
        qbdkr_refuse_bundle("RESOURCES names ${given}, with a file whose name contains \";\" or a lone bracket: rename it (near ${file})")
      endif()
      list(APPEND inputs "${file}")
    endforeach()
  endif()
  set(${out} "${inputs}" PARENT_SCOPE)
endfunction()

function(qbdkr_check_resource_names)
  set(seen)
  foreach(name IN LISTS ARGN)
    set(key "${name}")
    if(APPLE)  # where a file system usually ignores case
      string(TOLOWER "${name}" key)
    endif()
    if(key IN_LIST seen)
      qbdkr_refuse_bundle("two resources have the name ${name}: rename one, or leave it out (HELPER is a resource as well)")
    endif()
    list(APPEND seen "${key}")
  endforeach()
endfunction()

# Makes the Info.plist from BUNDLE_INFO and checks it. Runs the template before any other variable is set.
function(qbdkr_configure_bundle_info BUNDLE_CONFIGURED_INFO)
  if(NOT EXISTS ${BUNDLE_INFO} OR IS_DIRECTORY ${BUNDLE_INFO})
    qbdkr_refuse_bundle("INFO names ${BUNDLE_INFO}, which is no file: correct its path")
  endif()
  file(READ ${BUNDLE_INFO} BUNDLE_INFO_BEGINNING LIMIT 6 HEX)
  # A binary property list, or one in UTF-16, is no template. CMake cannot read it, so it is not judged.
  if(BUNDLE_INFO_BEGINNING MATCHES "^(62706c697374|fffe|feff)")
    configure_file(${BUNDLE_INFO} ${BUNDLE_CONFIGURED_INFO} COPYONLY)
    return()
  endif()
  configure_file(${BUNDLE_INFO} ${BUNDLE_CONFIGURED_INFO} @ONLY)
  if(NOT BUNDLE_UNCHECKED)
    qbdkr_check_bundle_info(${BUNDLE_CONFIGURED_INFO})
  endif()
endfunction()

function(qbdkr_check_bundle_info info)
  file(READ ${info} text)
  string(ASCII 239 187 191 mark)
  string(REGEX REPLACE "^${mark}" "" text "${text}")
  if(text MATCHES "^[ \t\r\n]*$")
    qbdkr_refuse_bundle("INFO ${BUNDLE_INFO} is empty: write the keys into it")
  elseif(NOT text MATCHES "^[ \t\r\n]*<")
    return()  # a property list in the older text format, which is not judged
  endif()
  qbdkr_read_property_list("${text}" plist)
  if(plist_ERROR)
    qbdkr_refuse_bundle("INFO ${BUNDLE_INFO} is no property list: ${plist_ERROR}")
  endif()

  qbdkr_require_info_text(identifier CFBundleIdentifier)
  qbdkr_require_info_text(executable CFBundleExecutable)
  qbdkr_require_info_text(version CFBundleVersion)
  if(NOT executable STREQUAL BUNDLE_NAME)
    qbdkr_refuse_bundle("CFBundleExecutable in ${BUNDLE_INFO} is \"${executable}\", but the executable is ${BUNDLE_NAME}: write that name")
  endif()
  set_target_properties(${BUNDLE_TARGET} PROPERTIES QBDKR_BUNDLE_IDENTIFIER "${identifier}")
  if(NOT BUNDLE_HELPER)
    return()
  endif()

  qbdkr_require_info_text(product PID)
  qbdkr_require_info_text(helper_identifier "Helper Bundle indentifiter")
  qbdkr_require_info_text(helper_name "Helepr App name" "Helper App name")
  set(key "Helper loaction path")
  set(other_key "Helper location path")
  if("${plist_TEXT.${key}}" STREQUAL "" AND DEFINED "plist_TYPE.${other_key}")
    unset("plist_TYPE.${key}")  # the framework passes over an empty one
  endif()
  qbdkr_require_info_text(location "Helper loaction path" "Helper location path")
  get_target_property(path ${BUNDLE_HELPER} QBDKR_BUNDLE_PATH)
  cmake_path(GET path STEM LAST_ONLY name)
  if(NOT helper_name STREQUAL name)
    qbdkr_refuse_bundle("the helper agent's name in ${BUNDLE_INFO} is \"${helper_name}\", but HELPER ${BUNDLE_HELPER} makes ${name}.app: make the two the same")
  endif()
  get_target_property(own_identifier ${BUNDLE_HELPER} QBDKR_BUNDLE_IDENTIFIER)
  if(own_identifier AND NOT helper_identifier STREQUAL own_identifier)
    qbdkr_refuse_bundle("\"Helper Bundle indentifiter\" in ${BUNDLE_INFO} is \"${helper_identifier}\", but the CFBundleIdentifier of HELPER ${BUNDLE_HELPER} is \"${own_identifier}\": make the two the same")
  endif()
endfunction()

# Returns the text of the first of the keys that the Info.plist has, and refuses one that has no text. A number is a
# text, as it is for the framework.
function(qbdkr_require_info_text out)
  foreach(key IN LISTS ARGN)
    if(NOT DEFINED "plist_TYPE.${key}")
      continue()
    endif()
    if(NOT "${plist_TYPE.${key}}" MATCHES "^(string|integer|real)$")
      qbdkr_refuse_bundle("\"${key}\" in ${BUNDLE_INFO} is a <${plist_TYPE.${key}}>: make it a <string>")
    endif()
    if("${plist_TEXT.${key}}" STREQUAL "")
      qbdkr_refuse_bundle("\"${key}\" in ${BUNDLE_INFO} is empty: give it a value, or check the variable that a template takes it from")
    endif()
    set(${out} "${plist_TEXT.${key}}" PARENT_SCOPE)
    return()
  endforeach()

  set(hint "add it")
  foreach(key IN LISTS ARGN)
    qbdkr_nearest_word("${key}" found ${plist_KEYS})
    if(found)
      set(hint "\"${found}\" is there and is not read, write \"${key}\" instead")
      break()
    endif()
  endforeach()
  list(JOIN ARGN "\" or \"" keys)
  set(kind "every bundle")
  if(NOT ARGV1 MATCHES "^CFBundle")
    set(kind "a bundle with HELPER")
  endif()
  qbdkr_refuse_bundle("INFO ${BUNDLE_INFO} has no \"${keys}\", which ${kind} needs: ${hint}")
endfunction()
