#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What a fuzz target is: a function that takes any bytes, does with them what a program would do,
/// and throws `Fuzz::Broken`, or crashes, when a promise is broken. What it is given by an earlier
/// call has no effect on a later one.
///
///    void parse( std::string_view input ) {
///       try {
///          Fuzz::require( printed( parsed( input ) ) == input, "a text is not the only one" );
///       } catch ( const ParseError & ) {} // refused, as it should be
///    }
///    const Fuzz::Target target( "NftJson", parse );
///
/// The name is that of the file and of the corpus. Thread: whichever calls, one at a time.
namespace Fuzz {

/// A promise is broken; says which.
struct Broken : std::logic_error {
   using std::logic_error::logic_error;
};

inline void require( bool kept, const std::string & promise ) {
   if ( !kept ) { throw Broken( promise ); }
}

struct Target {
   using Run = void ( * )( std::string_view input );

   /// Makes it known; lives as long as the program.
   Target( const char * itsName, Run function ) : name( itsName ), run( function ) {
      all().push_back( this );
   }

   /// Those that are linked into this program.
   static std::vector< const Target * > & all() {
      static std::vector< const Target * > targets;
      return targets;
   }

   const char * const name;
   const Run run;
};

/// What an input is for stands in its first line, so that corpora can be read and written by
/// people: that line, and everything behind it.
inline std::pair< std::string_view, std::string_view > firstLine( std::string_view input ) {
   const std::size_t end = input.find( '\n' );
   if ( end == input.npos ) { return { input, {} }; }
   return { input.substr( 0, end ), input.substr( end + 1 ) };
}

} // namespace Fuzz
