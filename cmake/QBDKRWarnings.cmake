# Warnings for our own code; a target asks for them by name.
add_library(QBDKRWarnings INTERFACE)
target_compile_options(QBDKRWarnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(QBDKR_WARNINGS_AS_ERRORS)
  target_compile_options(QBDKRWarnings INTERFACE -Werror)
endif()
if(CMAKE_UNITY_BUILD)  # joined sources see the anonymous namespaces of one another
  target_compile_options(QBDKRWarnings INTERFACE
    -Wno-shadow $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endif()
