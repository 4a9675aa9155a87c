# velo_add_test( NAME SOURCES a_test.cpp ... [LIBS target ...] [LABELS label ...] [TIMEOUT seconds] )
#
# A GoogleTest program that links the platform, and one ctest entry that runs all of it: one start
# of the program per suite is far cheaper under the sanitizers than one per test case. Where tests
# are not wanted the declaration does nothing.

if( VELO_BUILD_TESTS )
   enable_testing()
   find_package( GTest REQUIRED )
   include( VeloRapidCheck )

   # The main function of all of them; it tells the hash seed.
   add_library( velo_test_main OBJECT "${PROJECT_SOURCE_DIR}/tests/support/TestMain.cpp" )
   target_link_libraries( velo_test_main PUBLIC velo::platform GTest::gmock )
endif()

function( velo_add_test NAME )
   if( NOT VELO_BUILD_TESTS )
      return()
   endif()
   cmake_parse_arguments( PARSE_ARGV 1 ARG "" "TIMEOUT" "SOURCES;LIBS;LABELS" )
   if( NOT ARG_SOURCES OR ARG_UNPARSED_ARGUMENTS )
      message( FATAL_ERROR "velo_add_test( ${NAME} ): SOURCES missing, or not understood: "
                           "'${ARG_UNPARSED_ARGUMENTS}'" )
   endif()
   add_executable( ${NAME} ${ARG_SOURCES} )
   target_link_libraries( ${NAME} PRIVATE ${ARG_LIBS} velo::platform velo_test_main )
   add_test( NAME ${NAME} COMMAND ${NAME} --gtest_brief=1 )
   # A program without tests has proved nothing.
   set_tests_properties( ${NAME} PROPERTIES FAIL_REGULAR_EXPRESSION "] 0 tests from 0 test suites" )
   velo_configure_test( ${NAME} LABELS ${ARG_LABELS} TIMEOUT ${ARG_TIMEOUT} )
endfunction()

# velo_configure_test( NAME [LABELS label ...] [TIMEOUT seconds] )
#
# What every ctest entry of ours gets, for those that are no GoogleTest program too. Instrumented
# programs have five times the time (60 s when nothing is said).
function( velo_configure_test NAME )
   cmake_parse_arguments( PARSE_ARGV 1 ARG "" "TIMEOUT" "LABELS" )
   if( NOT ARG_TIMEOUT )
      set( ARG_TIMEOUT 60 )
   endif()
   if( VELO_SANITIZE OR VELO_COVERAGE )
      math( EXPR ARG_TIMEOUT "5 * ${ARG_TIMEOUT}" )
   endif()
   set( strictly
      "ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_string_checks=1"
      "LSAN_OPTIONS=print_suppressions=0:suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp"
      "UBSAN_OPTIONS=print_stacktrace=1"
      "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp" )
   set_tests_properties( ${NAME} PROPERTIES
      LABELS "${ARG_LABELS}" TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${strictly}" )
endfunction()
