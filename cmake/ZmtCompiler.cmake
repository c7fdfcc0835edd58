# Settings of the compiler that hold for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" CACHE STRING "" FORCE)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

find_program(ZMT_CCACHE ccache)
if(ZMT_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Precompiled headers are cacheable only with these two allowances.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros ${ZMT_CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Werror)

# The exact geometric predicates count on every rounding: no fused multiply-add.
add_compile_options(-ffp-contract=off)

# __FILE__ of sources and headers becomes ..\..\src\<path below src or include>,
# so that reports do not depend on where the tree lies.
add_compile_options(
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/=..\\..\\src\\"
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/include/=..\\..\\src\\")

if(ZMT_SANITIZE)
  add_compile_options(-fsanitize=${ZMT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # The instrumentation hides initialisations from this analysis.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_link_options(-fsanitize=${ZMT_SANITIZE})
endif()

if(ZMT_UNITY)
  # Taken for headers, sources could share the classes that they keep to themselves.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endif()

if(ZMT_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ZMT_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(ZMT_LTO)
  include(CheckIPOSupported)
  check_ipo_supported(LANGUAGES CXX)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
endif()
