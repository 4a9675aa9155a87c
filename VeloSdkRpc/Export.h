#pragma once

/// `VELO_SDK_RPC_EXPORT` marks what libVeloSdkRpcExt.so shows to others: its interface and the
/// classes whose type information crosses its border. See Lumo/Export.h for when to use it.
#define VELO_SDK_RPC_EXPORT __attribute__( ( visibility( "default" ) ) )
