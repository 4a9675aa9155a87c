# velo::rapidcheck: RapidCheck with its GoogleTest bridge, for property tests.

find_package( rapidcheck REQUIRED )
add_library( velo_rapidcheck INTERFACE )
add_library( velo::rapidcheck ALIAS velo_rapidcheck )
target_link_libraries( velo_rapidcheck INTERFACE rapidcheck rapidcheck_gtest )
