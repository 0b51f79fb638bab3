# Fails if a source of the macOS side is not in the list that a Mac builds.
file(GLOB_RECURSE sources RELATIVE ${SOURCES} ${SOURCES}/*MacOS.cpp)
file(READ ${SOURCES}/CMakeLists.txt list)
foreach(source IN LISTS sources)
  string(FIND "${list}" "    ${source}\n" place)
  if(place EQUAL -1)
    message(SEND_ERROR "Platform/CMakeLists.txt does not list ${source}")
  endif()
endforeach()
