# cpack -G DEB (make deb): one package, zvaddon, of everything cmake --install puts in place (the
# library and the reference host runtime, the tool and its man page, the headers, the CMake and
# pkg-config files, the catalogue and the schemas). Its Depends are the shared libraries the binaries
# load, as dpkg-shlibdeps finds them; the headers' own dependencies are recommended, for consumers.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zvaddon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The zvaddon developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "add-on packaging library of a numerical computing host, with its tool")
# The long description; cpack puts the summary above it and indents its lines.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Builds, signs, reads and unpacks add-on packages (.zvaddon files: OPC packages
holding an add-on's files, metadata records, screenshot and a signature over its
system requirements). Holds the library with its reference host runtime, the
zvaddon command-line tool and its man page, and the headers, CMake package and
pkg-config file for building against the library.")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/gateway ${PROJECT_BINARY_DIR}/src/host)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libxerces-c-dev, libboost-dev")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
include(CPack)
