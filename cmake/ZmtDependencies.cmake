# The foreign libraries. All of them stay private to the target that uses them:
# $<BUILD_INTERFACE:...> keeps them out of the exported package.

find_package(Threads REQUIRED)

# Makes an imported interface target <name> from the pkg-config module <module>.
find_package(PkgConfig REQUIRED)
function(zmt_find_module name module)
  pkg_check_modules(${name} REQUIRED IMPORTED_TARGET GLOBAL ${module})
endfunction()

if(nbx IN_LIST ZMT_LAYERS)
  find_package(Eigen3 REQUIRED NO_MODULE)
  find_package(ZLIB REQUIRED)
  find_package(JPEG REQUIRED)
  find_package(PNG REQUIRED)
  find_package(OpenGL REQUIRED COMPONENTS OpenGL EGL)
  find_package(GLEW REQUIRED)
  zmt_find_module(libdeflate libdeflate)
  if(text IN_LIST NBX_FOLDERS)
    # Glyphs, their places, the directions of lines.
    zmt_find_module(freetype freetype2)
    zmt_find_module(harfbuzz harfbuzz)
    zmt_find_module(fribidi fribidi)
  endif()
  if(io IN_LIST NBX_FOLDERS)
    # Models and where they stand.
    zmt_find_module(assimp assimp)
    zmt_find_module(pugixml pugixml)
    zmt_find_module(libzip libzip)
    find_package(nlohmann_json REQUIRED)
  endif()
  find_path(ZMT_STB_INCLUDE_DIR stb_dxt.h PATH_SUFFIXES stb REQUIRED)
  find_library(ZMT_GLU_LIBRARY GLU REQUIRED)
  # For the tests and applications that include the ...gl headers.
  set(ZMT_GL_LIBRARIES GLEW::GLEW OpenGL::OpenGL OpenGL::EGL ${ZMT_GLU_LIBRARY})
endif()

if(raster IN_LIST ZMT_LAYERS)
  find_package(GDAL REQUIRED)
endif()

if(core IN_LIST ZMT_LAYERS)
  # Files on web servers.
  find_package(Qt6 6.4 REQUIRED COMPONENTS Core Network)
  zmt_find_module(liburing liburing)
endif()

if(apps IN_LIST ZMT_LAYERS)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  # Only the window needs these.
  find_package(Qt6 6.4 QUIET COMPONENTS Widgets OpenGLWidgets OPTIONAL_COMPONENTS Test)
endif()

if(ZMT_TESTS)
  find_package(GTest REQUIRED)
endif()

if(ZMT_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
