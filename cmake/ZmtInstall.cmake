# Installation and the package zmt with the targets zmt::nbx, zmt::raster and
# zmt::core.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZMT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zmt)

set(installed_targets)
foreach(target nbx_core zmt_raster zmt_core)
  if(TARGET ${target})
    list(APPEND installed_targets ${target})
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
endforeach()

if(installed_targets)
  install(TARGETS ${installed_targets} EXPORT zmt-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
  # One line each, at the paths where the headers were before the folders had rooms.
  install(DIRECTORY forwarding/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
  install(EXPORT zmt-targets NAMESPACE zmt:: DESTINATION ${ZMT_PACKAGE_DIR})
  configure_package_config_file(cmake/zmt-config.cmake.in ${PROJECT_BINARY_DIR}/zmt-config.cmake
    INSTALL_DESTINATION ${ZMT_PACKAGE_DIR})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/zmt-config-version.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/zmt-config.cmake ${PROJECT_BINARY_DIR}/zmt-config-version.cmake
    DESTINATION ${ZMT_PACKAGE_DIR})
endif()

# For builds by other tools: zmt-nbx, zmt-raster and zmt-core. The folder of a file says where the package lies,
# so that it may be moved.
file(RELATIVE_PATH ZMT_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" ZMT_PC_PREFIX "\${pcfiledir}/${ZMT_PC_PREFIX}")
function(zmt_install_pkgconfig library component requires description)
  if(NOT TARGET ${library})
    return()
  endif()
  set(ZMT_PC_NAME zmt-${component})
  set(ZMT_PC_LIBRARY ${library})
  set(ZMT_PC_REQUIRES ${requires})
  set(ZMT_PC_DESCRIPTION ${description})
  configure_file(cmake/zmt.pc.in ${PROJECT_BINARY_DIR}/zmt-${component}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/zmt-${component}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
zmt_install_pkgconfig(nbx_core nbx "" "Scene and rendering engine of landscapes")
zmt_install_pkgconfig(zmt_raster raster zmt-nbx "Height rasters, image pyramids and vector files")
zmt_install_pkgconfig(zmt_core core zmt-raster "Terrains, their levels of detail, textures and painters")
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# Started by the library alone.
if(TARGET zmt_modelreader)
  install(TARGETS zmt_modelreader RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/zmt)
endif()

# The program, and beside it the window that it starts.
foreach(program zmt zmt_viewer)
  if(TARGET ${program})
    set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# What the window shows when it is started without a file; README.md tells where the data comes from.
if(TARGET zmt_viewer)
  install(FILES data/everest_srtm3.tif data/everest_landsat7_rgb.tif data/README.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zmt/sample)
endif()
