# Run by cpack when everything is installed for the packages: strips the programs as Debian's helpers do.
file(GLOB programs ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/bin/velmora-publish
                   ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/lib/velmora-update*/VelmoraUpdate.exe)
foreach(program ${programs})
  execute_process(COMMAND strip --remove-section=.comment --remove-section=.note ${program}
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
