# fmt::fmt, as installed, or (to compile against another version) nothing but the headers given.

if( VELO_FMT_HEADERS )
   add_library( fmt::fmt INTERFACE IMPORTED )
   target_include_directories( fmt::fmt INTERFACE "${VELO_FMT_HEADERS}" )
   target_compile_definitions( fmt::fmt INTERFACE FMT_HEADER_ONLY=1 )
else()
   find_package( fmt 9.1 REQUIRED )
endif()
