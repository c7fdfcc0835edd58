# Installs the build, then configures, builds and runs a consumer against it.
# Needs: BUILD_DIR, SOURCE_DIR (of the consumer), WORK_DIR, COMPONENTS, GENERATOR,
# COMPILER, FLAGS, CONSUMER_BUILD_TYPE.

cmake_minimum_required(VERSION 3.25)

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
  foreach(private GDAL Eigen deflate ZLIB JPEG PNG GLEW OpenGL assimp pugixml libzip freetype harfbuzz fribidi PkgConfig Threads "/usr/")
    if(file MATCHES "targets" AND text MATCHES "${private}")
      message(FATAL_ERROR "${file} names the private dependency ${private}")
    endif()
  endforeach()
endforeach()

function(build source build)
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${source} -B ${build} -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_BUILD_TYPE=${CONSUMER_BUILD_TYPE}
    -DCMAKE_PREFIX_PATH=${prefix} "-DZMT_COMPONENTS=${COMPONENTS}" --no-warn-unused-cli
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${build} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The library finds the program that reads models.
if(EXISTS ${prefix}/bin/zmt)
  execute_process(COMMAND ${prefix}/bin/zmt info ${SOURCE_DIR}/../data/models/prism.obj
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endif()

# The window finds the landscape that it shows without a file.
if(EXISTS ${prefix}/bin/zmt_viewer)
  foreach(file everest_srtm3.tif everest_landsat7_rgb.tif README.md)
    if(NOT EXISTS ${prefix}/share/zmt/sample/${file})
      message(FATAL_ERROR "${file} of the sample landscape was not installed")
    endif()
  endforeach()
endif()

build(${SOURCE_DIR} ${WORK_DIR}/build)
execute_process(COMMAND ${WORK_DIR}/build/consumer COMMAND_ERROR_IS_FATAL ANY)

# The same by pkg-config, which other tools ask.
find_program(pkg_config pkg-config)
if(pkg_config AND "core" IN_LIST COMPONENTS)
  file(GLOB_RECURSE pc_file ${prefix}/*/zmt-core.pc)
  cmake_path(GET pc_file PARENT_PATH pc_folder)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_folder}
    ${pkg_config} --cflags --libs "zmt-core >= 0.1" OUTPUT_VARIABLE arguments COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(arguments UNIX_COMMAND "${arguments}")
  separate_arguments(flags UNIX_COMMAND "${FLAGS}")
  execute_process(COMMAND ${COMPILER} -std=c++20 ${flags} -DZMT_WITH_nbx -DZMT_WITH_raster -DZMT_WITH_core
    ${SOURCE_DIR}/consumer.cpp ${arguments} -Wl,-rpath,${pc_folder}/.. -o ${WORK_DIR}/pkgconfigconsumer
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${WORK_DIR}/pkgconfigconsumer COMMAND_ERROR_IS_FATAL ANY)
endif()

# The example that README.md shows.
if("core" IN_LIST COMPONENTS)
  build(${SOURCE_DIR}/../../examples/firstpicture ${WORK_DIR}/firstpicture)
  set(check ${WORK_DIR}/build/firstpicturecheck)
  set(files ${WORK_DIR}/heights.tif ${WORK_DIR}/image.tif)
  execute_process(COMMAND ${check} make ${files} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${WORK_DIR}/firstpicture/firstpicture ${files} ${WORK_DIR}/picture.png
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${check} check ${WORK_DIR}/picture.png COMMAND_ERROR_IS_FATAL ANY)
endif()
