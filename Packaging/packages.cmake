# The packages for Linux: cpack makes a .deb and an .rpm of what is installed with the prefix /usr.
set(CPACK_PACKAGE_NAME ombrix)
set(CPACK_PACKAGE_VENDOR "Ombrix developers")
set(CPACK_PACKAGE_CONTACT "Ombrix developers <developers@ombrix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "software-metering agent")
set(CPACK_PACKAGE_DESCRIPTION
"Ombrix tells an organisation which programs run on its machines, by whom and
for how long. Once a minute it compares the kernel's list of processes with
its own; each run that has ended becomes one small file for other software to
collect. It runs as a service of a user of its own and sends nothing anywhere.")

set(CPACK_GENERATOR DEB RPM)
set(CPACK_PRE_BUILD_SCRIPTS
  ${CMAKE_CURRENT_SOURCE_DIR}/compress.cmake ${CMAKE_CURRENT_SOURCE_DIR}/debian/complete.cmake)
# The configuration lies outside of the prefix.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(debian ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
# With these the agent is told of each sleep beforehand; without, it finds sleeps by the clocks.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "default-logind | logind, polkitd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${debian}/conffiles ${debian}/postinst ${debian}/prerm ${debian}/postrm)
set(CPACK_OMBRIX_DEBIAN ${debian})
set(CPACK_OMBRIX_CHANGES ${CMAKE_SOURCE_DIR}/CHANGELOG.md)

set(rpm ${CMAKE_CURRENT_SOURCE_DIR}/rpm)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _build_id_links none")
set(CPACK_RPM_PACKAGE_LICENSE "All rights reserved")
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_PACKAGE_REQUIRES "systemd")
set(CPACK_RPM_USER_FILELIST "%config(noreplace) ${OMBRIX_CONFIGURATION}")
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${rpm}/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${rpm}/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${rpm}/postun)
# Directories of the system's that others own.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/sbin /usr/lib/systemd /usr/lib/systemd/system /usr/lib/sysusers.d /usr/lib/tmpfiles.d
  /usr/share/man /usr/share/man/man5 /usr/share/man/man8
  /usr/share/bash-completion /usr/share/bash-completion/completions
  /usr/share/fish /usr/share/fish/vendor_completions.d
  /usr/share/zsh /usr/share/zsh/site-functions)

include(CPack)
