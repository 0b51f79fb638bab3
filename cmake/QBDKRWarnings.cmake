# Warnings for our own code; a target asks for them by name.
add_library(QBDKRWarnings INTERFACE)
target_compile_options(QBDKRWarnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(QBDKR_WARNINGS_AS_ERRORS)
  target_compile_options(QBDKRWarnings INTERFACE -Werror)
endif()
# Joined sources see the anonymous namespaces of one another.
set(joined $<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>)
target_compile_options(QBDKRWarnings INTERFACE
  $<${joined}:-Wno-shadow> $<$<AND:${joined},$<COMPILE_LANG_AND_ID:CXX,GNU>>:-Wno-subobject-linkage>)
unset(joined)
