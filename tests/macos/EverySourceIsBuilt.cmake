# Fails when a source of the macOS side is not in the list that a Mac builds.
file(GLOB sources RELATIVE ${SOURCES} ${SOURCES}/*.cpp)
file(READ ${SOURCES}/CMakeLists.txt list)
foreach(source IN LISTS sources)
  string(FIND "${list}" "  ${source}\n" place)
  if(place EQUAL -1)
    message(SEND_ERROR "Platform/macOS/CMakeLists.txt does not list ${source}")
  endif()
endforeach()
