# Makes of what was installed what packages hold. Runs before the packages of a kind are made.

set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(debug ${stage}/debug)
if(CPACK_GENERATOR STREQUAL "RPM")
  set(debug ${stage}/debug_rpm)
  file(REMOVE_RECURSE ${stage}/runtime/usr/share/lintian)
endif()

# Moves the debug information of a program to where debuggers look for it by build id.
function(take_debug_information program)
  execute_process(COMMAND ${CPACK_READELF} --notes --wide ${program} OUTPUT_VARIABLE notes COMMAND_ERROR_IS_FATAL ANY)
  if(NOT notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
    message(FATAL_ERROR "${program} has no build id.")
  endif()
  set(information ${debug}/usr/lib/debug/.build-id/${CMAKE_MATCH_1}/${CMAKE_MATCH_2}.debug)
  get_filename_component(directory ${information} DIRECTORY)
  file(MAKE_DIRECTORY ${directory})
  execute_process(COMMAND ${CPACK_OBJCOPY} --only-keep-debug --compress-debug-sections ${program} ${information}
                  COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${information} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  execute_process(COMMAND ${CPACK_OBJCOPY} --strip-all ${program} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(GLOB programs ${stage}/runtime/usr/bin/* ${stage}/runtime/usr/lib/*/*)
foreach(program ${programs})
  file(READ ${program} magic LIMIT 4 HEX)
  if(magic STREQUAL "7f454c46")
    take_debug_information(${program})
  endif()
endforeach()

file(GLOB_RECURSE libraries ${stage}/*/*.a)
foreach(library ${libraries})
  execute_process(COMMAND ${CPACK_OBJCOPY} --strip-debug --enable-deterministic-archives ${library}
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()

file(GLOB_RECURSE documents ${stage}/*/usr/share/man/*.[1-8] ${stage}/*/usr/share/doc/*/changelog)
foreach(document ${documents})
  execute_process(COMMAND gzip --best --no-name ${document} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# All have the time that packaging/make asks for: RPM takes it for newer files only.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find ${stage} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
