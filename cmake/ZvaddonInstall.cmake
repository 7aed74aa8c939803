# cmake --install: the library and the reference host runtime, the public C++ headers (those the
# package API reaches), the zvaddon tool and its man page, the message catalogue, the XML schemas, a
# CMake package config (find_package(zvaddon)) and a pkg-config file (zvaddon.pc).
include(CMakePackageConfigHelpers)

set(ZV_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/zvaddon)
set(ZV_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/zvaddon)
set(ZV_INSTALL_DATADIR ${CMAKE_INSTALL_DATADIR}/zvaddon)

# The headers a user of the package API includes, found by following #include "..." from the entry
# headers through src/, so that a header added below them is installed without a list to keep. Each
# header read is a configure dependency: an #include added or dropped re-runs the closure.
function(zv_header_closure out)
  set(pending ${ARGN})
  set(seen)
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST seen OR NOT EXISTS ${PROJECT_SOURCE_DIR}/src/${header})
      continue()
    endif()
    list(APPEND seen ${header})
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${header})
    file(STRINGS ${PROJECT_SOURCE_DIR}/src/${header} lines REGEX "^[ \t]*#[ \t]*include[ \t]+\"")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]+\"([^\"]+)\".*" "\\1" included "${line}")
      list(APPEND pending ${included})
    endforeach()
  endwhile()
  set(${out} ${seen} PARENT_SCOPE)
endfunction()

file(GLOB zv_metadata_headers RELATIVE ${PROJECT_SOURCE_DIR}/src CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/metadata/*.h)
zv_header_closure(zv_public_headers package/addon_package.h gateway/zvaddon.h host/qx.h host/matrix.h
                  host/reference/call.h host/reference/host_error.h ${zv_metadata_headers})
foreach(header IN LISTS zv_public_headers)
  get_filename_component(subdir ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/src/${header} DESTINATION ${ZV_INSTALL_INCLUDEDIR}/${subdir} COMPONENT devel)
endforeach()

# The installed tool finds the libraries beside it, wherever the prefix is moved.
set_target_properties(zvaddon_tool PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
install(TARGETS zvaddon zvhost_reference
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT devel)
install(TARGETS zvaddon_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/docs/zvaddon.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/messages ${PROJECT_SOURCE_DIR}/resources/schemas
        DESTINATION ${ZV_INSTALL_DATADIR} COMPONENT runtime)

# The library's file names as the linker made them, for the imported targets of the package config.
set(ZV_LIBRARY_FILE ${CMAKE_SHARED_LIBRARY_PREFIX}zvaddon${CMAKE_SHARED_LIBRARY_SUFFIX}.${PROJECT_VERSION})
set(ZV_LIBRARY_SONAME ${CMAKE_SHARED_LIBRARY_PREFIX}zvaddon${CMAKE_SHARED_LIBRARY_SUFFIX}.${PROJECT_VERSION_MAJOR})
set(ZV_HOST_LIBRARY_FILE ${CMAKE_SHARED_LIBRARY_PREFIX}zvhost_reference${CMAKE_SHARED_LIBRARY_SUFFIX})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/zvaddonConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/zvaddonConfig.cmake
                              INSTALL_DESTINATION ${ZV_INSTALL_CMAKEDIR}
                              PATH_VARS CMAKE_INSTALL_LIBDIR ZV_INSTALL_INCLUDEDIR ZV_INSTALL_DATADIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zvaddonConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zvaddonConfig.cmake ${PROJECT_BINARY_DIR}/zvaddonConfigVersion.cmake
        DESTINATION ${ZV_INSTALL_CMAKEDIR} COMPONENT devel)

# Relative to the .pc file, so that the installed tree can be moved.
file(RELATIVE_PATH ZV_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/zvaddon.pc.in ${PROJECT_BINARY_DIR}/zvaddon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zvaddon.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT devel)
