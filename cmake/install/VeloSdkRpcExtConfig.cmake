# find_package( VeloSdkRpcExt ) gives the targets VeloSdkRpc::VeloSdkRpcExt, which is
# libVeloSdkRpcExt.so, and velo::platform, which it stands on.

include( CMakeFindDependencyMacro )
find_dependency( Threads )
find_dependency( fmt 9.1 )

include( "${CMAKE_CURRENT_LIST_DIR}/VeloPlatformTargets.cmake" )
include( "${CMAKE_CURRENT_LIST_DIR}/VeloSdkRpcExtTargets.cmake" )
