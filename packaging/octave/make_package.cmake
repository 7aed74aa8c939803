# cmake -P: lays out the Octave package tree in STAGE and packs it into TARBALL. pkg install moves
# inst/ARCH/* to its architecture-dependent folder, so each .mex, the libraries it loads (found
# through its $ORIGIN run path), the message catalogue and the .m file holding the help text of the
# .mex (Octave reads help for a .mex only from a .m file beside it) go there together.
# Variables: SOURCE (packaging/octave), BINDING (the Octave binding's folder), EXAMPLE (the example
# add-on), DESCRIPTION, ARCH (pkg's architecture name), STRIP, STAGE, TARBALL.
file(REMOVE_RECURSE ${STAGE})
set(root ${STAGE}/zvaddon)
set(arch_dir ${root}/inst/${ARCH})
file(MAKE_DIRECTORY ${arch_dir})
file(COPY ${DESCRIPTION} ${SOURCE}/COPYING ${SOURCE}/INDEX DESTINATION ${root})
file(COPY ${SOURCE}/zvaddon_demo.m DESTINATION ${root}/inst)
# Under private/, which pkg install leaves alone: it writes a doc-cache file into every other folder.
file(COPY ${EXAMPLE}/ DESTINATION ${root}/inst/private/example)
file(GLOB help ${SOURCE}/help/*.m)
file(GLOB binaries ${BINDING}/*.mex ${BINDING}/*.so*)
file(COPY ${help} ${binaries} ${BINDING}/messages DESTINATION ${arch_dir})
foreach(binary IN LISTS binaries)
  get_filename_component(name ${binary} NAME)
  execute_process(COMMAND ${STRIP} --strip-debug ${arch_dir}/${name} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -E tar czf ${TARBALL} zvaddon WORKING_DIRECTORY ${STAGE}
                COMMAND_ERROR_IS_FATAL ANY)
