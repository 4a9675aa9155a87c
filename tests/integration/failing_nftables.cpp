/// Loaded before libnftables (LD_PRELOAD), this makes every command fail while the file named by
/// FAIL_WHILE exists; what the file holds is what libnftables complains of.

#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <sstream>
#include <string>

struct nft_ctx;

namespace {

std::string complaint;

/// The function of this name in the library behind us.
template< typename Function >
Function next( const char * name ) {
   return reinterpret_cast< Function >( ::dlsym( RTLD_NEXT, name ) );
}

bool inTrouble() {
   complaint.clear();
   const char * const path = std::getenv( "FAIL_WHILE" );
   const std::ifstream trouble( path ? path : "" );
   if ( !trouble ) { return false; }
   std::ostringstream text;
   text << trouble.rdbuf();
   complaint = text.str() + '\n';
   return true;
}

} // namespace

extern "C" {

__attribute__( ( visibility( "default" ) ) ) int nft_run_cmd_from_buffer( nft_ctx * context,
                                                                          const char * command ) {
   if ( inTrouble() ) { return -1; }
   return next< int ( * )( nft_ctx *, const char * ) >( "nft_run_cmd_from_buffer" )( context,
                                                                                     command );
}

__attribute__( ( visibility( "default" ) ) ) const char *
nft_ctx_get_error_buffer( nft_ctx * context ) {
   if ( !complaint.empty() ) { return complaint.c_str(); }
   return next< const char * (*)( nft_ctx * ) >( "nft_ctx_get_error_buffer" )( context );
}
}
