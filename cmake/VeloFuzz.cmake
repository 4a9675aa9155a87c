# velo_add_fuzz_target( NAME LIBS target ... )
#
# One fuzz target, <NAME>_fuzz.cpp, with its corpus below corpus/<NAME>. Where fuzzers are wanted it
# becomes the program fuzz_<NAME>, which libFuzzer drives; ctest runs it for a moment, on the corpus
# and on what it makes of that. Otherwise it becomes part of fuzz_replay_test, which every preset
# builds: it only replays the corpora.

if( VELO_BUILD_FUZZERS )
   enable_testing()
   add_custom_target( velo_fuzzers )
endif()

function( velo_add_fuzz_target NAME )
   cmake_parse_arguments( PARSE_ARGV 1 ARG "" "" "LIBS" )
   set( corpus "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${NAME}" )
   if( NOT VELO_BUILD_FUZZERS )
      target_sources( fuzz_replay_test PRIVATE ${NAME}_fuzz.cpp )
      target_link_libraries( fuzz_replay_test PRIVATE ${ARG_LIBS} )
      return()
   endif()
   add_executable( fuzz_${NAME} ${NAME}_fuzz.cpp LibFuzzer.cpp )
   target_include_directories( fuzz_${NAME} PRIVATE "${PROJECT_SOURCE_DIR}" )
   target_link_libraries( fuzz_${NAME} PRIVATE ${ARG_LIBS} velo::platform )
   target_link_options( fuzz_${NAME} PRIVATE -fsanitize=fuzzer )
   add_dependencies( velo_fuzzers fuzz_${NAME} )

   set( found "${PROJECT_BINARY_DIR}/found/${NAME}" )
   file( MAKE_DIRECTORY "${found}" )
   # The seed is fixed: whether a change is accepted is no matter of luck. Luck is for scripts/fuzz.
   add_test( NAME fuzz_${NAME} COMMAND fuzz_${NAME} -seed=1 -runs=20000 -max_total_time=20 -timeout=10
             "-artifact_prefix=${found}/" "${corpus}" )
   velo_configure_test( fuzz_${NAME} LABELS fuzz TIMEOUT 120 )
endfunction()
