# Run by cpack: the package needs the system layout that a build for the /usr prefix gives.
if(NOT CPACK_PACKAGING_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "configure the build with -DCMAKE_INSTALL_PREFIX=/usr to make the package")
endif()
