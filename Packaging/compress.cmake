# Manual pages lie compressed in every distribution. Run by cpack on the tree that it has installed.
file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/man*/*)
if(pages)
  execute_process(COMMAND gzip -9n ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()
