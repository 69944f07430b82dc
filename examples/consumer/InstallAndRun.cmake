# Installs the collector package into a fresh prefix, builds the example consumer against it and
# runs it. Called by the ctest example_consumer:
#   cmake -DBUILD_DIR=<tree> -DSOURCE_DIR=<examples/consumer> -DWORK_DIR=<scratch>
#         [-DCXX_FLAGS=...] [-DGENERATOR=Ninja] -P InstallAndRun.cmake
foreach(required BUILD_DIR SOURCE_DIR WORK_DIR)
  if(NOT DEFINED ${required})
    message(FATAL_ERROR "${required} is not set")
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  message("${output}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result})")
  endif()
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --component NatcCollector)
set(generator_args)
if(GENERATOR)
  set(generator_args -G ${GENERATOR})
endif()
run("configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build ${generator_args}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${CXX_FLAGS}")
run("build" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run("run" ${WORK_DIR}/build/collector_consumer)
