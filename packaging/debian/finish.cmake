# Finishes the contents of each package, which CPack has installed into a folder of its own.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(contents ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})

  set(documents ${contents}/usr/share/doc/${package})
  file(COPY ${CPACK_DEBIAN_FILES}/copyright DESTINATION ${documents})
  file(ARCHIVE_CREATE OUTPUT ${documents}/changelog.Debian.gz PATHS ${CPACK_DEBIAN_FILES}/changelog
       FORMAT raw COMPRESSION GZip COMPRESSION_LEVEL 9)
  file(GLOB pages ${contents}/usr/share/man/man*/*.[0-9])
  foreach(page IN LISTS pages)
    file(ARCHIVE_CREATE OUTPUT ${page}.gz PATHS ${page} FORMAT raw COMPRESSION GZip COMPRESSION_LEVEL 9)
    file(REMOVE ${page})
  endforeach()

  file(GLOB_RECURSE programs LIST_DIRECTORIES false ${contents}/usr/*)
  list(FILTER programs INCLUDE REGEX "\\.so\\.[^/]*$|\\.app/Contents/Linux/[^/]*$")
  foreach(program IN LISTS programs)
    if(NOT IS_SYMLINK ${program})
      execute_process(COMMAND ${CPACK_STRIP} --strip-unneeded ${program} COMMAND_ERROR_IS_FATAL ANY)
      if(program MATCHES "\\.so\\.")
        file(CHMOD ${program} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
      endif()
    endif()
  endforeach()

  set(symbols ${CPACK_DEBIAN_FILES}/${package}.symbols)
  if(EXISTS ${symbols})
    file(MAKE_DIRECTORY ${CPACK_QBDKR_SYMBOLS}/${package})
    set(options)
    foreach(library IN LISTS programs)
      list(APPEND options -e${library})
    endforeach()
    # Fails if a symbol is gone.
    execute_process(
      COMMAND dpkg-gensymbols -q -c1 -p${package} -v${CPACK_PACKAGE_VERSION} -P${contents} -I${symbols}
              -O${CPACK_QBDKR_SYMBOLS}/${package}/symbols ${options}
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
