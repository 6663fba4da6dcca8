# Install layout and the Debian package (cpack): the programs, manual pages, bash completion,
# the systemd unit and the init script, each where Debian keeps them.
include(GNUInstallDirs)

# For a system prefix (/usr, as in the package) the unit and the init script go to the system's
# own folders; for any other prefix they stay below it, so `cmake --install --prefix DIR` never
# writes outside DIR.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(CFG_UNIT_DIR /lib/systemd/system)
  set(CFG_INITD_DIR /etc/init.d)
else()
  set(CFG_UNIT_DIR lib/systemd/system)
  set(CFG_INITD_DIR ${CMAKE_INSTALL_SYSCONFDIR}/init.d)
endif()

configure_file(examples/configServer.service.in ${CMAKE_BINARY_DIR}/dist/configServer.service @ONLY)
configure_file(examples/init.d/configServer.in ${CMAKE_BINARY_DIR}/dist/configServer @ONLY)

install(TARGETS configServer etlmsg RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES man/configServer.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES man/etlmsg.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES completion/etlmsg DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${CMAKE_BINARY_DIR}/dist/configServer.service DESTINATION ${CFG_UNIT_DIR})
install(PROGRAMS ${CMAKE_BINARY_DIR}/dist/configServer DESTINATION ${CFG_INITD_DIR})
install(DIRECTORY examples/root/ DESTINATION ${CMAKE_INSTALL_DATADIR}/configServer/root)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME configserver)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "configuration service of the IP phone, and the etlmsg tool")
set(CPACK_PACKAGE_DESCRIPTION "configServer keeps the phone's configuration items in step with the \
registry of INI documents and rewrites the user configuration file; etlmsg talks to its message \
thread from a shell.")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "configServer maintainers <configserver@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/deb/conffiles)
if(CMAKE_CROSSCOMPILING)
  # CPack runs dpkg-shlibdeps for the host's architecture, which cannot read these programs: the
  # libraries they link are declared here (scripts/package-test.sh checks them against
  # dpkg-shlibdeps run for armhf).
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libpugixml1v5 (>= 1.6), libstdc++6 (>= 12)")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
# A package built for another prefix would put the init script and the unit in the wrong place.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/PackagingCheck.cmake)
include(CPack)
