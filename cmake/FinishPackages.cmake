# Runs between CPack's installing into its own folder and the making of the packages: compressed
# manual pages, and the two documents that a Debian package has to have.

set(packaging ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian)
set(now $ENV{SOURCE_DATE_EPOCH})
if(now STREQUAL "")
  string(TIMESTAMP now %s UTC)
endif()

macro(kv_run)
  execute_process(${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endmacro()

kv_run(COMMAND date -R -u -d @${now} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE)

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
  set(usr ${root}${CPACK_INSTALL_PREFIX})

  file(GLOB pages ${usr}/share/man/man*/*.[0-9])
  if(pages)
    kv_run(COMMAND gzip -9nf ${pages})
  endif()

  set(documents ${usr}/share/doc/${package})
  file(COPY ${packaging}/copyright DESTINATION ${documents}
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
       DIRECTORY_PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
  kv_run(COMMAND awk -v package=${package} -v contact=${CPACK_DEBIAN_PACKAGE_MAINTAINER}
                     -v now=${date} -f ${packaging}/changelog.awk
                     ${CMAKE_CURRENT_LIST_DIR}/../CHANGES.md
         COMMAND gzip -9n OUTPUT_FILE ${documents}/changelog.gz)
  file(CHMOD ${documents}/changelog.gz
       PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

  # The same sources give the same packages.
  kv_run(COMMAND find ${root} -newermt @${now} -exec touch -h -d @${now} {} +)
endforeach()
