# A toolchain that consists only of names: CMake can write the build of a Mac with it, but not run it.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_CXX_COMPILER_WORKS TRUE)
set(CMAKE_CXX_ABI_COMPILED TRUE)
set(CMAKE_HAVE_LIBC_PTHREAD TRUE)
set(CMAKE_INSTALL_NAME_TOOL true)
set(CMAKE_OSX_SYSROOT /)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
