# `cmake --install`: the libraries with their public headers, the programs, and what others need to
# find the libraries, with find_package or pkg-config. Everything finds its neighbours by their place
# beside it, so that a prefix can be moved as a whole.
#
# Components: runtime (the libraries), dev (what compiling needs), agent (the programs).

include( CMakePackageConfigHelpers )

# The library's headers are included as "VeloSdkRpc/PbrCountersMgr.h". The platform has many
# directories, which get one of their own to stand in.
set( VELO_PLATFORM_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/velo-platform" )
set( VELO_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/VeloSdkRpcExt" )
set( VELO_PKGCONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig" )

# In /usr the loader and the compiler look by themselves; elsewhere neighbours have to be named.
if( CMAKE_INSTALL_PREFIX STREQUAL "/usr" )
   set( VELO_PC_PREFIX "/usr" )
else()
   file( RELATIVE_PATH pc_to_prefix
         "${CMAKE_INSTALL_PREFIX}/${VELO_PKGCONFIG_DIR}" "${CMAKE_INSTALL_PREFIX}" )
   string( REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}" )
   set( VELO_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}" )
   file( RELATIVE_PATH bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}" )
   set_target_properties( VeloSdkRpcExt PROPERTIES INSTALL_RPATH "$ORIGIN" )
   if( VELO_BUILD_AGENT )
      set_target_properties( velo-agent PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}" )
   endif()
endif()

# Headers look at this one, so whoever includes them has to have what the libraries were built with.
if( VELO_DEBUG_CHECKS )
   target_compile_definitions( velo_platform INTERFACE $<INSTALL_INTERFACE:VELO_DEBUG_CHECKS=1> )
   set( VELO_PC_DEFINITIONS "-DVELO_DEBUG_CHECKS=1" )
endif()

# Targets are called the same whether the library is installed or part of one's own build.
set_target_properties( velo_platform PROPERTIES EXPORT_NAME platform )
install( TARGETS velo_platform EXPORT VeloPlatform
   LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
   FILE_SET HEADERS DESTINATION "${VELO_PLATFORM_INCLUDEDIR}" COMPONENT dev
   FILE_SET entities DESTINATION "${VELO_PLATFORM_INCLUDEDIR}" COMPONENT dev )
install( TARGETS VeloSdkRpcExt EXPORT VeloSdkRpcExt
   LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
   FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev )
install( EXPORT VeloPlatform NAMESPACE velo:: FILE VeloPlatformTargets.cmake
   DESTINATION "${VELO_CMAKE_DIR}" COMPONENT dev )
install( EXPORT VeloSdkRpcExt NAMESPACE VeloSdkRpc:: FILE VeloSdkRpcExtTargets.cmake
   DESTINATION "${VELO_CMAKE_DIR}" COMPONENT dev )

write_basic_package_version_file( "${PROJECT_BINARY_DIR}/VeloSdkRpcExtConfigVersion.cmake"
   COMPATIBILITY SameMajorVersion )
install( FILES "${CMAKE_CURRENT_LIST_DIR}/install/VeloSdkRpcExtConfig.cmake"
               "${PROJECT_BINARY_DIR}/VeloSdkRpcExtConfigVersion.cmake"
   DESTINATION "${VELO_CMAKE_DIR}" COMPONENT dev )

foreach( library velo-platform VeloSdkRpcExt )
   configure_file( "${CMAKE_CURRENT_LIST_DIR}/install/${library}.pc.in"
                   "${PROJECT_BINARY_DIR}/${library}.pc" @ONLY )
   install( FILES "${PROJECT_BINARY_DIR}/${library}.pc"
      DESTINATION "${VELO_PKGCONFIG_DIR}" COMPONENT dev )
endforeach()

if( VELO_BUILD_AGENT )
   install( TARGETS velo-agent veloctl RUNTIME COMPONENT agent )
   install( FILES docs/man/velo-agent.8
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT agent )
   install( FILES docs/man/veloctl.1
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT agent )
   install( DIRECTORY agent/proto/velo
      DESTINATION "${CMAKE_INSTALL_DATADIR}/velo-agent/proto" COMPONENT dev
      FILES_MATCHING PATTERN "*.proto" )
   install( CODE "set( systemd \"${PROJECT_SOURCE_DIR}/agent/systemd\" )
                  set( scratch \"${PROJECT_BINARY_DIR}\" )" COMPONENT agent )
   install( SCRIPT "${CMAKE_CURRENT_LIST_DIR}/install/Service.cmake" COMPONENT agent )
endif()
