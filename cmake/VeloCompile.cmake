# How everything of ours is compiled: language, warnings, visibility, instrumentation.

include( GNUInstallDirs )
find_package( Threads REQUIRED )

set( CMAKE_CXX_STANDARD 20 )
set( CMAKE_CXX_STANDARD_REQUIRED ON )
set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_CXX_VISIBILITY_PRESET hidden )
set( CMAKE_VISIBILITY_INLINES_HIDDEN ON )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
set( CMAKE_EXPORT_COMPILE_COMMANDS ON )

# Programs and libraries land together, so that they are easy to find and to run by hand.
set( CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin" )
set( CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib" )

if( NOT CMAKE_CXX_COMPILER_LAUNCHER )
   find_program( CCACHE ccache )
   if( CCACHE )
      set( CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}" )
   endif()
endif()

add_compile_options( -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast )
if( VELO_WERROR )
   add_compile_options( -Werror )
endif()

# Nobody replaces single functions of our shared libraries: calls inside one need no detour, and may
# be inlined. (What the C++ library lets a program replace, `operator new` say, still is.)
add_compile_options( -fno-semantic-interposition )

# Object files do not depend on where the build tree is, so that a compiler cache can share them
# between presets.
add_compile_options( "-ffile-prefix-map=${PROJECT_BINARY_DIR}=." )

# Definitions that headers look at stand here, so that no two targets can disagree about them.
if( VELO_DEBUG_CHECKS )
   add_compile_definitions( VELO_DEBUG_CHECKS=1 )
endif()

if( VELO_SANITIZE )
   add_compile_options(
      -fsanitize=${VELO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer )
   add_link_options( -fsanitize=${VELO_SANITIZE} )
   if( CMAKE_CXX_COMPILER_ID STREQUAL GNU )
      # GCC's manual: wrong alarms are to be expected of these two together.
      add_compile_options( -Wno-maybe-uninitialized )
   endif()
endif()
if( VELO_BUILD_FUZZERS )
   add_compile_options( -fsanitize=fuzzer-no-link )
endif()
if( VELO_COVERAGE )
   add_compile_options( --coverage -fprofile-update=atomic )
   add_link_options( --coverage )
endif()
