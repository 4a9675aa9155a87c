# Run by `cmake --install`: the unit, with the paths of the prefix at hand, and the configuration,
# which belongs to the machine once it is there.
#
#    systemd   where both are
#    scratch   where there is room for files of our own

if( CMAKE_INSTALL_PREFIX STREQUAL "/usr" )
   set( etc "/etc" )
   set( units "/lib/systemd/system" )
else()
   set( etc "${CMAKE_INSTALL_PREFIX}/etc" )
   set( units "${CMAKE_INSTALL_PREFIX}/lib/systemd/system" )
endif()

file( READ "${systemd}/velo-agent.service" unit )
string( REPLACE "/usr/bin/" "${CMAKE_INSTALL_PREFIX}/bin/" unit "${unit}" )
string( REPLACE "/etc/" "${etc}/" unit "${unit}" )
file( WRITE "${scratch}/velo-agent.service" "${unit}" )
file( INSTALL "${scratch}/velo-agent.service" DESTINATION "${units}" )

if( NOT EXISTS "$ENV{DESTDIR}${etc}/velo-agent.conf" )
   file( INSTALL "${systemd}/velo-agent.conf" DESTINATION "${etc}" )
endif()
