# What Debian packages hold in compressed form. Runs on the files of a package before it is made.
file(GLOB_RECURSE documents
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/man/*.[1-8]
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/doc/*/changelog)
foreach(document ${documents})
  execute_process(COMMAND gzip --best --no-name ${document} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
