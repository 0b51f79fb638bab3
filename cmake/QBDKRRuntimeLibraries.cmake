# The part of qbdkr_add_bundle(... SELF_CONTAINED) that runs while a bundle is built. Finds the libraries of the machine
# that the given ones and the program load, but for those of every desktop. Files are separated by "|".
#
#   cmake -DLIBRARIES=<files> -DLIST=<file> -P QBDKRRuntimeLibraries.cmake
#       lists them with their digests, and writes FILE.d, from which Make and Ninja learn when to ask again
#   cmake -DLIBRARIES=<files> -DPROGRAM=<file> -DFOLDER=<folder> -P QBDKRRuntimeLibraries.cmake
#       copies them into the folder
cmake_policy(VERSION 3.25)

# These are not copied, and neither is what only they load. docs/reference.md has the reasons.
set(of_every_desktop
  # the C library and its loader
  "ld-linux.*|ld64|ld-musl.*|lib(c|m|dl|rt|pthread|resolv|util|nsl|anl|mvec|nss_.*)"
  # the libraries of the compiler
  "lib(stdc\\+\\+|gcc_s|atomic|gomp)"
  # what talks to the display, the sound and their drivers
  "lib(GL|EGL|GLX|OpenGL|GLdispatch|GLES.*|gbm|vulkan|drm.*|va|va-.*|X.*|xcb|xcb-.*|ICE|SM|wayland-.*|xkbcommon.*)"
  "lib(asound|pulse.*|pipewire-.*|jack|fontconfig|freetype)"
  # toolkits, which load plug-ins of their own version
  "lib(glib|gobject|gio|gmodule|gthread)-2\\.0|lib(gtk|gdk|pango|cairo|atk|harfbuzz).*|lib(Qt|KF)[0-9].*|lib(gnustep-.*|objc)")
list(JOIN of_every_desktop "|" of_every_desktop)
set(most_libraries 32)
set(most_bytes 67108864)  # 64 MiB

string(REPLACE "|" ";" LIBRARIES "${LIBRARIES}")
set(executables)
if(PROGRAM)
  set(executables EXECUTABLES ${PROGRAM})
endif()
file(GET_RUNTIME_DEPENDENCIES LIBRARIES ${LIBRARIES} ${executables}
  PRE_EXCLUDE_REGEXES "^(${of_every_desktop})\\.so"
  RESOLVED_DEPENDENCIES_VAR found
  UNRESOLVED_DEPENDENCIES_VAR missing
  CONFLICTING_DEPENDENCIES_PREFIX ambiguous)
if(missing)
  list(JOIN missing " " names)
  message(FATAL_ERROR " SELF_CONTAINED: this machine does not have ${names}: install what has it, or do not link it")
endif()

set(contained)
foreach(library IN LISTS LIBRARIES)
  cmake_path(GET library FILENAME name)
  list(APPEND contained ${name})
endforeach()
set(ambiguous ${ambiguous_FILENAMES})
list(REMOVE_ITEM ambiguous ${contained})
if(ambiguous)
  list(JOIN ambiguous " " names)
  message(FATAL_ERROR " SELF_CONTAINED: this machine has more than one of ${names}: link one of them")
endif()

set(libraries)
set(bytes 0)
foreach(library IN LISTS found)
  cmake_path(GET library FILENAME name)
  if(NOT name IN_LIST contained)
    list(APPEND libraries ${library})
    file(SIZE ${library} size)
    math(EXPR bytes "${bytes} + ${size}")
  endif()
endforeach()
list(LENGTH libraries count)
if(count GREATER most_libraries OR bytes GREATER most_bytes)
  list(TRANSFORM libraries REPLACE ".*/" "")
  list(JOIN libraries " " names)
  message(FATAL_ERROR " SELF_CONTAINED: ${count} libraries of ${bytes} bytes are more than ${most_libraries} or more than ${most_bytes} bytes: ${names}")
endif()

if(PROGRAM)
  foreach(library IN LISTS libraries)
    cmake_path(GET library FILENAME name)
    file(COPY_FILE ${library} ${FOLDER}/${name})
    # It names places on this machine, and would keep the loader from those of the program.
    file(RPATH_REMOVE FILE ${FOLDER}/${name})
  endforeach()
  return()
endif()

# A package may bring a library that is older than the list. The time of its folder changes all the same, and the list
# only with the library.
set(text)
set(followed)
foreach(library IN LISTS libraries)
  file(SHA256 ${library} digest)
  string(APPEND text "${digest} ${library}\n")
  cmake_path(GET library PARENT_PATH folder)
  file(REAL_PATH ${library} real)
  cmake_path(GET real PARENT_PATH real_folder)
  list(APPEND followed ${library} ${folder} ${real_folder})
endforeach()
list(REMOVE_DUPLICATES followed)
set(before)
if(EXISTS ${LIST})
  file(READ ${LIST} before)
endif()
if(NOT "${before}" STREQUAL "${text}" OR NOT EXISTS ${LIST})
  file(WRITE ${LIST} "${text}")
endif()
list(TRANSFORM followed REPLACE "([ #])" "\\\\\\1")
list(JOIN followed " " followed)
file(WRITE ${LIST}.d "${LIST}: ${followed}\n")
