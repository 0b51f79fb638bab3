# Installs the build into a directory of its own, then builds and runs a host and a helper agent
# against it, once through CMake's package and once through pkg-config.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " command)
    message(FATAL_ERROR "${command}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(check_output)
  if(NOT output MATCHES "compares 1, status -600")
    message(FATAL_ERROR "unexpected output: ${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
# The installed headers are those of include/, and each one compiles alone. Those in Objective-C are
# there if that face is.
file(GLOB_RECURSE headers RELATIVE ${ROOT}/include ${ROOT}/include/*.h)
if(NOT OBJECTIVE_C)
  list(FILTER headers EXCLUDE REGEX "^QBDKRProductClientObjC/")
endif()
file(GLOB_RECURSE installed RELATIVE ${prefix}/include ${prefix}/include/*.h)
if(NOT headers OR NOT headers STREQUAL installed)
  message(FATAL_ERROR "installed are: ${installed}")
endif()
if(OBJECTIVE_C AND NOT EXISTS ${prefix}/include/QBDKRProductClientObjC/module.modulemap)
  message(FATAL_ERROR "the module map of the Objective-C face is not installed")
endif()
foreach(header IN LISTS installed)
  if(header MATCHES "^QBDKRProductClientObjC/")
    continue()  # the consumer in Objective-C includes them all
  endif()
  file(WRITE ${WORK}/header.cpp "#include <${header}>\n")
  run(${COMPILER} -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I${prefix}/include
      ${WORK}/header.cpp)
endforeach()

set(flags)
if(SANITIZERS)
  set(flags -fsanitize=${SANITIZERS})
endif()

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/build -G Ninja -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${flags}" -DOBJECTIVE_C=${OBJECTIVE_C}
    -DCMAKE_OBJC_COMPILER=${OBJC_COMPILER})
run(${CMAKE_COMMAND} --build ${WORK}/build)
# The bundles run without the installation. The helper agent also runs from inside the host.
set(bundles ${WORK}/build/bundles)
set(isolated ${CMAKE_COMMAND} -E env HOME=${WORK}/home --unset=XDG_CONFIG_HOME
    --unset=DBUS_SESSION_BUS_ADDRESS)
file(RENAME ${prefix} ${WORK}/moved)
# The tool runs from an installation that was moved, by a link.
if(EXISTS ${WORK}/moved/libexec/qbhp.app)
  run(${isolated} ${WORK}/moved/bin/qbhp versions 1.0b3 1.0 --is older)
  foreach(file IN ITEMS man/man1/qbhp.1 bash-completion/completions/qbhp)
    if(NOT EXISTS ${WORK}/moved/share/${file})
      message(FATAL_ERROR "${file} is not installed")
    endif()
  endforeach()
endif()
run(${isolated} ${bundles}/Host.app/Contents/Linux/Host)
check_output()
run(${isolated} ${bundles}/Host.app/Contents/Resources/Agent.app/Contents/Linux/Agent)
if(OBJECTIVE_C)
  run(${isolated} ${bundles}/Objects.app/Contents/Linux/Objects)
  check_output()
endif()
file(RENAME ${WORK}/moved ${prefix})

file(GLOB_RECURSE description ${prefix}/*/QBDKRProductClient.pc)
get_filename_component(directory ${description} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${directory})
# pkg-config must find the libraries although the build was configured with another prefix.
execute_process(COMMAND pkg-config --cflags --libs QBDKRProductClient
                OUTPUT_VARIABLE options OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(options UNIX_COMMAND "${options}")
get_filename_component(libraries ${directory} DIRECTORY)
run(${COMPILER} ${CONSUMER}/host.cpp -o ${WORK}/host ${flags} ${options} -Wl,-rpath,${libraries})
run(${isolated} ${WORK}/host)
check_output()

# A program that links statically needs the libraries behind ours.
foreach(package IN ITEMS ClientComm QBDKRProductClient)
  run(pkg-config --static --libs ${package})
  foreach(library IN ITEMS systemd expat utf8proc)
    if(NOT output MATCHES "-l${library}( |\n|$)")
      message(FATAL_ERROR "pkg-config --static --libs ${package} lacks ${library}: ${output}")
    endif()
  endforeach()
  run(pkg-config --libs ${package})
  if(output MATCHES "systemd")
    message(FATAL_ERROR "pkg-config --libs ${package} links what only the libraries need: ${output}")
  endif()
endforeach()

# The code in the README and on the page for helper agents makes up a complete project.
run(python3 -B ${README_PROJECT} make ${ROOT} ${WORK}/readme)
run(${COMPILER} -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I${prefix}/include
    ${WORK}/readme/limits.cpp ${WORK}/readme/states.cpp)
run(${CMAKE_COMMAND} -S ${WORK}/readme -B ${WORK}/readme/build -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${WORK}/readme/build)
set(helper ${WORK}/readme/build/bundles/PhotoTool.app/Contents/Resources/AcmeHelper.app/Contents)
if(NOT EXISTS ${helper}/Linux/AcmeHelper OR NOT EXISTS ${helper}/Frameworks)
  message(FATAL_ERROR "the README's host carries no helper agent")
endif()
# Its helper agent keeps the contract, and its host prints what that answers.
if(EXISTS ${prefix}/bin/qbhp)
  run(${prefix}/bin/qbhp check-helper ${WORK}/readme/build/bundles/AcmeHelper.app)
  if(NOT output MATCHES " 0 failed")
    message(FATAL_ERROR "the helper agent of the page breaks the contract:\n${output}")
  endif()
endif()
run(python3 -B ${README_PROJECT} run ${WORK}/readme)
