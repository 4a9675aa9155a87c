#include "agent/nftables/NftTable.h"

#include "agent/nftables/NftProbe.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nftables/libnftables.h>
#include <nlohmann/json.hpp>
#include <utility>

namespace VeloAgent {

namespace {

using nlohmann::json;

std::string firstLine( std::string_view text ) {
   return std::string( text.substr( 0, text.find( '\n' ) ) );
}

std::string listCommand( const char * what, json arguments ) {
   const json list = { { what, std::move( arguments ) } };
   const json command = { { "nftables", json::array( { { { "list", list } } } ) } };
   // A name that is no UTF-8 came from a command line; libnftables could not take it either.
   return command.dump( -1, ' ', false, json::error_handler_t::replace );
}

} // namespace

NftNoSuchTable::NftNoSuchTable( const NftTableName & name, std::vector< std::string > others )
   : NftReadError( "no table " + name.text() + " in this network namespace" ),
     others_( std::move( others ) ) {}

void NftTable::ContextFree::operator()( nft_ctx * context ) const { nft_ctx_free( context ); }

NftTable::NftTable( NftTableName name ) : name_( std::move( name ) ) {
   probeNetfilter();
   context_.reset( nft_ctx_new( NFT_CTX_DEFAULT ) );
   if ( !context_ || nft_ctx_buffer_output( context_.get() ) != 0 ||
        nft_ctx_buffer_error( context_.get() ) != 0 ) {
      throw NftReadError( "libnftables gives no context" );
   }
   nft_ctx_output_set_flags( context_.get(), NFT_CTX_OUTPUT_JSON );
}

std::string NftTable::run( const std::string & jsonCommand ) {
   errno = 0;
   const int result = nft_run_cmd_from_buffer( context_.get(), jsonCommand.c_str() );
   const int error = errno;
   // Both buffers go on growing until they are asked for.
   std::string output = nft_ctx_get_output_buffer( context_.get() );
   const std::string complaint = firstLine( nft_ctx_get_error_buffer( context_.get() ) );
   if ( result == 0 ) { return output; }
   if ( error == EPERM || complaint.find( std::strerror( EPERM ) ) != std::string::npos ) {
      throw NftPermissionError( complaint );
   }
   throw NftReadError( complaint.empty() ? "libnftables failed without saying why" : complaint );
}

NftCounters NftTable::read() {
   std::string failure;
   try {
      return countersFromNftJson(
         run( listCommand( "table", { { "family", name_.family }, { "name", name_.name } } ) ) );
   } catch ( const NftPermissionError & ) { throw; } catch ( const NftReadError & refused ) {
      failure = refused.what();
   }

   std::vector< std::string > present =
      tablesFromNftJson( run( listCommand( "tables", { { "family", name_.family } } ) ) );
   if ( std::find( present.begin(), present.end(), name_.text() ) == present.end() ) {
      throw NftNoSuchTable( name_, std::move( present ) );
   }
   throw NftReadError( failure );
}

} // namespace VeloAgent
