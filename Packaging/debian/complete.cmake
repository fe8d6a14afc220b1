# What Debian's policy asks of the tree in a .deb beyond what is installed elsewhere. Run by cpack.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  return()
endif()

set(tree ${CPACK_TEMPORARY_DIRECTORY})
set(documents ${tree}/usr/share/doc/ombrix)
set(overrides ${tree}/usr/share/lintian/overrides)
file(MAKE_DIRECTORY ${documents} ${overrides})

# Not by file(INSTALL), which would put DESTDIR in front.
function(add source destination)
  configure_file(${source} ${destination} COPYONLY NO_SOURCE_PERMISSIONS)
endfunction()
add(${CPACK_OMBRIX_DEBIAN}/copyright ${documents}/copyright)
add(${CPACK_OMBRIX_DEBIAN}/changelog ${documents}/changelog.Debian)
add(${CPACK_OMBRIX_CHANGES} ${documents}/changelog)
add(${CPACK_OMBRIX_DEBIAN}/lintian-overrides ${overrides}/ombrix)

# Debian's zsh looks for what packages bring in a folder of its own.
if(EXISTS ${tree}/usr/share/zsh/site-functions)
  file(RENAME ${tree}/usr/share/zsh/site-functions ${tree}/usr/share/zsh/vendor-completions)
endif()

execute_process(COMMAND gzip -9n ${documents}/changelog ${documents}/changelog.Debian
  COMMAND_ERROR_IS_FATAL ANY)
