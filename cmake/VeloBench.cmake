# velo_add_bench( NAME SOURCES a_bench.cpp ... [LIBS target ...] )
#
# A Google Benchmark program. `scripts/bench` builds the target `velo_bench`, which is all of them,
# and runs everything it finds in bin/bench. Where benchmarks are not wanted the declaration does
# nothing.

if( VELO_BUILD_BENCH )
   find_package( benchmark REQUIRED )
   add_custom_target( velo_bench )
endif()

function( velo_add_bench NAME )
   if( NOT VELO_BUILD_BENCH )
      return()
   endif()
   cmake_parse_arguments( PARSE_ARGV 1 ARG "" "" "SOURCES;LIBS" )
   if( NOT ARG_SOURCES OR ARG_UNPARSED_ARGUMENTS )
      message( FATAL_ERROR "velo_add_bench( ${NAME} ): SOURCES missing, or not understood: "
                           "'${ARG_UNPARSED_ARGUMENTS}'" )
   endif()
   add_executable( ${NAME} ${ARG_SOURCES} )
   target_link_libraries( ${NAME} PRIVATE ${ARG_LIBS} velo::platform benchmark::benchmark_main )
   set_target_properties( ${NAME} PROPERTIES
      RUNTIME_OUTPUT_DIRECTORY "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/bench" )
   add_dependencies( velo_bench ${NAME} )
endfunction()
