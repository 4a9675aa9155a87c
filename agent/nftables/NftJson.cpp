#include "agent/nftables/NftJson.h"

#include <nlohmann/json.hpp>

namespace VeloAgent {

namespace {

using nlohmann::json;

[[noreturn]] void fail( const std::string & what ) {
   throw NftJsonError( "not understood in the JSON of libnftables: " + what );
}

const json & member( const json & object, const char * key, const char * where ) {
   const auto found = object.is_object() ? object.find( key ) : object.end();
   if ( found == object.end() ) { fail( std::string( where ) + " without \"" + key + '"' ); }
   return *found;
}

const std::string & textMember( const json & object, const char * key, const char * where ) {
   const json & value = member( object, key, where );
   if ( !value.is_string() ) {
      fail( std::string( "\"" ) + key + "\" of a " + where + " is no string" );
   }
   return value.get_ref< const std::string & >();
}

std::uint64_t countMember( const json & object, const char * key, const char * where ) {
   const json & value = member( object, key, where );
   // Not is_number(): a number beyond 64 bits is parsed as a floating-point one, a guess.
   if ( !value.is_number_integer() ) {
      fail( std::string( "\"" ) + key + "\" of a " + where + " is no 64-bit number" );
   }
   return value.is_number_unsigned() ? value.get< std::uint64_t >()
                                     : static_cast< std::uint64_t >( value.get< std::int64_t >() );
}

Counters countersMembers( const json & object ) {
   return { .packets = countMember( object, "packets", "counter" ),
            .bytes = countMember( object, "bytes", "counter" ) };
}

void addNamedCounter( const json & counter, NftCounters & found ) {
   const std::string & name = textMember( counter, "name", "counter" );
   const std::size_t slash = name.find( '/' );
   if ( slash == std::string::npos || slash == 0 || slash + 1 == name.size() ) {
      found.misnamed.push_back( name );
      return;
   }
   found.counters[name.substr( 0, slash )][name.substr( slash + 1 )] += countersMembers( counter );
}

void addRuleCounters( const json & rule, NftCounters & found ) {
   const auto comment = rule.find( "comment" );
   if ( comment == rule.end() || !comment->is_string() ) { return; }
   const auto & className = comment->get_ref< const std::string & >();
   if ( className.empty() ) { return; }
   const std::string & policy = textMember( rule, "chain", "rule" );
   for ( const json & statement : member( rule, "expr", "rule" ) ) {
      if ( !statement.is_object() ) { continue; }
      const auto counter = statement.find( "counter" );
      // A string here is the name of a counter that the table lists by itself.
      if ( counter == statement.end() || !counter->is_object() ) { continue; }
      found.counters[policy][className] += countersMembers( *counter );
   }
}

/// Calls `visit( kind, object )` for each entry of the listing, such as "table" or "rule".
template< typename Visit >
void forEachEntry( std::string_view text, Visit visit ) {
   const json listing = json::parse( text, nullptr, false );
   if ( listing.is_discarded() ) { fail( "no JSON at all" ); }
   const json & entries = member( listing, "nftables", "listing" );
   if ( !entries.is_array() ) { fail( "\"nftables\" is no array" ); }
   for ( const json & entry : entries ) {
      if ( !entry.is_object() ) { continue; }
      for ( const auto & [kind, object] : entry.items() ) {
         if ( object.is_object() ) { visit( kind, object ); }
      }
   }
}

} // namespace

NftCounters countersFromNftJson( std::string_view text ) {
   NftCounters found;
   forEachEntry( text, [&found]( const std::string & kind, const json & object ) {
      if ( kind == "counter" ) { addNamedCounter( object, found ); }
      if ( kind == "rule" ) { addRuleCounters( object, found ); }
   } );
   return found;
}

std::vector< std::string > tablesFromNftJson( std::string_view text ) {
   std::vector< std::string > names;
   forEachEntry( text, [&names]( const std::string & kind, const json & object ) {
      if ( kind != "table" ) { return; }
      names.push_back( textMember( object, "family", "table" ) + '/' +
                       textMember( object, "name", "table" ) );
   } );
   return names;
}

} // namespace VeloAgent
