# `cpack -G DEB` in a build folder makes one Debian package of everything
# `cmake --install` installs: the shared and static library, the header,
# the CMake and pkg-config files, and (where it was built) the host tool
# qlis with its photograph.
set(CPACK_PACKAGE_NAME "libql-is")
set(CPACK_PACKAGE_VENDOR "libql_is developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Camera image-selection library: keeps the sharpest preview frame against hand shake")
set(CPACK_PACKAGE_DESCRIPTION
    "libql_is judges the sharpness of camera preview frames, keeps the sharpest recent one and decides whether a capture is replaced by it; for a burst it names the sharpest and the blurriest frame. The package also holds the host tool qlis, which runs the library on recorded or synthetic frames.")
set(CPACK_PACKAGE_CONTACT "libql_is developers")
set(CPACK_GENERATOR "DEB")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libql_is developers")
set(CPACK_DEBIAN_PACKAGE_SECTION "libs")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Dependencies are read from the installed binaries (libc, libstdc++,
# libpng for qlis) where dpkg-shlibdeps is at hand (Debian's dpkg-dev).
find_program(QLIS_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(QLIS_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
include(CPack)
