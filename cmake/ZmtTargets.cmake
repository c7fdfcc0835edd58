# The three libraries. A library without sources is left out.

# With ZMT_UNITY the sources of <target> that stand in one folder are compiled as one, so that what they include
# is read once. Sources with compile options, definitions or include folders of their own stay alone.
function(zmt_compile_by_folder target)
  if(NOT ZMT_UNITY)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(GET source PARENT_PATH folder)
    file(RELATIVE_PATH group ${PROJECT_SOURCE_DIR} ${folder})
    string(REPLACE "/" "_" group ${group})
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${group})
  endforeach()
  # Each source has options of its own: those that it sets by a pragma end with it.
  set(guard "#if defined(__GNUC__) && !defined(__clang__)")
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP
    UNITY_BUILD_CODE_BEFORE_INCLUDE
      "${guard}\n#pragma GCC push_options\n#endif\n// NOLINTNEXTLINE(bugprone-suspicious-include)"
    UNITY_BUILD_CODE_AFTER_INCLUDE "${guard}\n#pragma GCC pop_options\n#endif")
endfunction()

# Adds the shared library <target> with the alias zmt::<alias>, made of the
# remaining arguments.
function(zmt_add_library target alias)
  if(NOT ARGN)
    message(STATUS "${target}: no sources, left out")
    return()
  endif()
  add_library(${target} SHARED ${ARGN})
  add_library(zmt::${alias} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${alias}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:include>)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:Threads::Threads>)
  # These builds are slow. The other ones see that every source names what it needs.
  if(ZMT_SANITIZE)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <cmath> <cstdint> <functional> <memory> <string> <vector>)
  endif()
  zmt_compile_by_folder(${target})
endfunction()

# Links <target> with those of the remaining targets that exist.
function(zmt_link_existing target)
  foreach(dependency IN LISTS ARGN)
    if(TARGET ${dependency})
      target_link_libraries(${target} PUBLIC ${dependency})
    endif()
  endforeach()
endfunction()

# Collects into <result> the sources of the chosen folders of the engine and of their rooms.
function(zmt_collect_nbx_sources result)
  set(sources)
  foreach(folder IN LISTS NBX_FOLDERS)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/nbx/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  list(FILTER sources EXCLUDE REGEX "/nbx/io/program/")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

function(zmt_add_nbx)
  zmt_collect_nbx_sources(sources)
  zmt_add_library(nbx_core nbx ${sources})
  if(NOT TARGET nbx_core)
    return()
  endif()
  # Behind a source that has used the constructor as a constant, GCC leaves it out of the explicit instantiation.
  set_source_files_properties(${PROJECT_SOURCE_DIR}/src/nbx/math/matrix4x4base.cpp PROPERTIES
    SKIP_UNITY_BUILD_INCLUSION ON)
  target_include_directories(nbx_core SYSTEM PRIVATE ${ZMT_STB_INCLUDE_DIR})
  target_link_libraries(nbx_core PRIVATE
    $<BUILD_INTERFACE:Eigen3::Eigen>
    $<BUILD_INTERFACE:PkgConfig::libdeflate>
    $<BUILD_INTERFACE:ZLIB::ZLIB>
    $<BUILD_INTERFACE:JPEG::JPEG>
    $<BUILD_INTERFACE:PNG::PNG>
    "$<BUILD_INTERFACE:${ZMT_GL_LIBRARIES}>"
    $<BUILD_INTERFACE:${CMAKE_DL_LIBS}>)
  if(text IN_LIST NBX_FOLDERS)
    # Their headers lie in folders of their own, which only the sources of text see.
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/nbx/text/*.cpp)
    set_property(SOURCE ${sources} APPEND PROPERTY
      INCLUDE_DIRECTORIES ${freetype_INCLUDE_DIRS} ${harfbuzz_INCLUDE_DIRS} ${fribidi_INCLUDE_DIRS})
    target_link_libraries(nbx_core PRIVATE
      $<BUILD_INTERFACE:$<LINK_ONLY:PkgConfig::freetype>>
      $<BUILD_INTERFACE:$<LINK_ONLY:PkgConfig::harfbuzz>>
      $<BUILD_INTERFACE:$<LINK_ONLY:PkgConfig::fribidi>>)
  endif()
  if(io IN_LIST NBX_FOLDERS)
    zmt_add_model_reader()
  endif()
endfunction()

# The program that reads models for the library, which finds it beside itself or,
# once installed, at a path from its own folder.
function(zmt_add_model_reader)
  include(GNUInstallDirs)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/nbx/io/program/*.cpp)
  add_executable(zmt_modelreader ${sources}
    ${PROJECT_SOURCE_DIR}/src/nbx/io/folderfiles.cpp ${PROJECT_SOURCE_DIR}/src/nbx/io/modelanswer.cpp)
  zmt_compile_by_folder(zmt_modelreader)
  target_compile_features(zmt_modelreader PRIVATE cxx_std_20)
  target_link_libraries(zmt_modelreader PRIVATE PkgConfig::assimp PkgConfig::pugixml
    nlohmann_json::nlohmann_json)
  set_target_properties(zmt_modelreader PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  file(RELATIVE_PATH place /${CMAKE_INSTALL_LIBDIR} /${CMAKE_INSTALL_LIBEXECDIR}/zmt/zmt_modelreader)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/src/nbx/io/readerprocess.cpp PROPERTIES
    COMPILE_DEFINITIONS ZMT_MODELREADER="${place}")
  target_link_libraries(nbx_core PRIVATE
    $<BUILD_INTERFACE:PkgConfig::pugixml>
    $<BUILD_INTERFACE:PkgConfig::libzip>)
  add_dependencies(nbx_core zmt_modelreader)
endfunction()

function(zmt_add_raster)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/raster/*.cpp)
  zmt_add_library(zmt_raster raster ${sources})
  # Loops over rows whose cells are computed several at once.
  set_source_files_properties(
    ${PROJECT_SOURCE_DIR}/src/raster/relief/shadeproduct.cpp ${PROJECT_SOURCE_DIR}/src/raster/relief/slopeproduct.cpp
    PROPERTIES SKIP_PRECOMPILE_HEADERS ON COMPILE_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo>:-O3>;-fno-math-errno;-fno-trapping-math")
  if(NOT TARGET zmt_raster)
    return()
  endif()
  zmt_link_existing(zmt_raster nbx_core)
  target_link_libraries(zmt_raster PRIVATE $<BUILD_INTERFACE:GDAL::GDAL>)
endfunction()

function(zmt_add_core)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/core/*.cpp
    ${PROJECT_SOURCE_DIR}/src/util/*.cpp)
  zmt_add_library(zmt_core core ${sources})
  if(TARGET zmt_core)
    zmt_link_existing(zmt_core nbx_core zmt_raster)
    target_link_libraries(zmt_core PRIVATE
      $<BUILD_INTERFACE:PkgConfig::liburing>
      $<BUILD_INTERFACE:Qt6::Core>
      $<BUILD_INTERFACE:Qt6::Network>)
  endif()
endfunction()
