// What people write where an attribute takes a text: addresses, prefixes, label stacks, the modes
// of mounts. There may be several spellings of a value and one that it is printed in.

#include <map>

#include "Ipnet/Ipnet.h"
#include "Keldb/Keldb.h"
#include "Quon/Exceptions.h"
#include "Routing/Fib/Fib.h"
#include "tests/fuzz/Fuzz.h"

namespace Fuzz::Spellings {
namespace {

template< class T >
void spelling( std::string_view text ) {
   const T value( text );
   const std::string printed = value.toString();
   require( T( std::string_view( printed ) ) == value, "what is printed means the same" );
   require( Quon::fromText< T >( Quon::text( value ) ) == value, "the text form means the same" );
}

void mountMode( std::string_view text ) {
   Keldb::Mount mount( "path", "Type" );
   try {
      mount.handleFlags( text );
      for ( const char letter : text ) {
         require( std::string_view( "rwi" ).find( letter ) != std::string_view::npos,
                  "every letter of a mode that is accepted is known" );
      }
   } catch ( const Quon::RangeException & ) {
      require( mount.flags() == Keldb::AllMountFlags( 0 ), "a mode is accepted whole" );
      throw;
   }
}

void parse( std::string_view input ) {
   using Check = void ( * )( std::string_view );
   static const std::map< std::string_view, Check > checks = {
      { "address", spelling< Ipnet::IpAddr > },
      { "prefix", spelling< Ipnet::IpPrefix > },
      { "labels", spelling< Routing::Fib::LabelStack > },
      { "mode", mountMode } };
   const auto [kind, text] = firstLine( input );
   const auto found = checks.find( kind );
   if ( found == checks.end() ) { return; }
   try {
      found->second( text );
   } catch ( const Quon::RangeException & error ) {
      for ( const char c : std::string_view( error.what() ) ) {
         require( static_cast< unsigned char >( c ) >= ' ' && c != '\x7f',
                  "a refusal is one line of printable characters" );
      }
   }
}

const Target target( "Spellings", parse );

} // namespace
} // namespace Fuzz::Spellings
