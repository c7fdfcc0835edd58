# Installs the build, then configures, builds and runs a consumer against it.
# Needs: BUILD_DIR, SOURCE_DIR (of the consumer), WORK_DIR, COMPONENTS, GENERATOR,
# COMPILER, FLAGS, CONSUMER_BUILD_TYPE.

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

# A private dependency in the exported targets would force it on every consumer.
file(GLOB_RECURSE package_files ${prefix}/*.cmake)
if(NOT package_files)
  message(FATAL_ERROR "no package files were installed")
endif()
foreach(file IN LISTS package_files)
  file(READ ${file} text)
  foreach(private GDAL Eigen deflate ZLIB JPEG PNG GLEW OpenGL PkgConfig Threads "/usr/")
    if(file MATCHES "targets" AND text MATCHES "${private}")
      message(FATAL_ERROR "${file} names the private dependency ${private}")
    endif()
  endforeach()
endforeach()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_BUILD_TYPE=${CONSUMER_BUILD_TYPE}
  -DCMAKE_PREFIX_PATH=${prefix} "-DZMT_COMPONENTS=${COMPONENTS}"
  COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${WORK_DIR}/build/consumer COMMAND_ERROR_IS_FATAL ANY)
