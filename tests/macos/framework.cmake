# Lets CMake write the build of a Mac, and checks the frameworks in it. Nothing is compiled.
function(require_text file text)
  file(READ ${file} contents)
  string(FIND "${contents}" "${text}" place)
  if(place EQUAL -1)
    message(SEND_ERROR "${file} does not say: ${text}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
execute_process(
  COMMAND ${CMAKE_COMMAND} -Wno-dev -G Ninja -S ${SOURCE} -B ${WORK} -DBUILD_TESTING=OFF -DQBDKR_OBJECTIVE_C=${OBJECTIVE_C}
    -DSQLite3_INCLUDE_DIR=/usr/include -DSQLite3_LIBRARY=/usr/lib/libsqlite3.tbd
    -DCMAKE_TOOLCHAIN_FILE=${CMAKE_CURRENT_LIST_DIR}/Darwin.cmake -DCMAKE_CXX_COMPILER=${COMPILER}
  OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The build of a Mac cannot be configured:\n${output}")
endif()

set(build ${WORK}/build.ninja)
foreach(library IN ITEMS ClientComm QBDKRProductClient)
  # These two make up the install name.
  require_text(${build} "INSTALLNAME_DIR = @executable_path/../Frameworks/\n")
  require_text(${build} "SONAME = ${library}.framework/Versions/A/${library}\n")
  require_text(${build} "Versions/Current/Modules ${WORK}/lib/${library}.framework/Modules")
  require_text(${build} "build lib/${library}.framework/Versions/A/Modules/module.modulemap:")
  set(information ${WORK}/lib/${library}.framework/Versions/A/Resources/Info.plist)
  require_text(${information} "<string>${library}</string>")
  require_text(${information} "<string>FMWK</string>")
  require_text(${information} "<string>12.0</string>")
endforeach()
# The Objective-C face is a part of the framework, under ARC.
if(OBJECTIVE_C)
  require_text(${build} "build ObjectiveC/CMakeFiles/ObjectiveCObjects.dir/Conversion.mm.o:")
  require_text(${build} "-fobjc-arc")
  require_text(${build} "LINK_LIBRARIES = lib/ClientComm.framework/Versions/A/ClientComm  -framework Foundation")
endif()
# These two become options of the compiler, which not every compiler has.
require_text(${WORK}/CMakeCache.txt "CMAKE_OSX_ARCHITECTURES:STRING=arm64;x86_64")
require_text(${WORK}/CMakeCache.txt "CMAKE_OSX_DEPLOYMENT_TARGET:STRING=12.0")
require_text(${build} "LINK_LIBRARIES = -framework ApplicationServices")
require_text(${build} " -lexpat")
require_text(${build} "Contents/MacOS/PhotoTool")
# The bundles are signed, what is inside first. The helper agent is an application of AppKit.
set(sample ${WORK}/examples/1.0/PhotoTool.app)
set(sign "codesign --force --sign -")
require_text(${build} "${sign} ${sample}/Contents/Frameworks/ClientComm.framework && ${sign} ${sample}/Contents/Frameworks/QBDKRProductClient.framework && ${sign} ${sample}")
require_text(${build} "${sign} ${WORK}/examples/1.0/AcmeHelper.app")
require_text(${build} "AcmeHelper/AppKitMacOS.mm")

# The framework contains every public header, and the module map names it.
function(require_headers library folder least)
  file(GLOB headers RELATIVE ${SOURCE}/include/${library} ${SOURCE}/include/${library}/*.h)
  list(LENGTH headers count)
  if(count LESS least)
    message(SEND_ERROR "${library} has only ${count} public headers")
  endif()
  foreach(header IN LISTS headers)
    require_text(${build} "build lib/${library}.framework/Versions/A/Headers/${header}:")
    require_text(${WORK}/${folder}/${library}.modulemap/module.modulemap "header \"${header}\"")
  endforeach()
endfunction()
require_headers(ClientComm ClientComm 20)
require_headers(QBDKRProductClient ProductClient 2)
