# Installs the build into a scratch prefix, then builds and runs a consumer
# through find_package(ql_is) and, where pkg-config exists, through it. The
# consumer includes the installed header, so a header left out of the
# install fails its build.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

# Runs one step; any failure ends the check with the step's own output.
function(step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE r OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT r EQUAL 0)
    message(FATAL_ERROR "${what} failed:\n${out}")
  endif()
endfunction()

step(install ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
step("consumer configure" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer
     -DCMAKE_PREFIX_PATH=${prefix})
step("consumer build" ${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
step("consumer run" ${WORK_DIR}/consumer/consumer)

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB pc_dir ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
  set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
  execute_process(COMMAND ${PKG_CONFIG} --cflags --libs ql_is
    RESULT_VARIABLE r OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT r EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know ql_is")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  step("build with pkg-config flags" ${C_COMPILER} ${CONSUMER_DIR}/main.c ${flags}
       -o ${WORK_DIR}/pc_consumer)
  get_filename_component(libdir ${pc_dir} DIRECTORY)
  set(ENV{LD_LIBRARY_PATH} ${libdir})
  step("pkg-config consumer run" ${WORK_DIR}/pc_consumer)
endif()
message(STATUS "installed package found and used")
