#include "Step.h"

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace VeloSdkRpc::simulation {
namespace {

struct Kind {
   std::string_view name;
   unsigned weight; ///< How often it comes, compared with others.
};

constexpr std::array< Kind, kVerbs > kinds = { {
   { "addPolicy", 3 },
   { "addNullPolicy", 2 },
   { "removePolicy", 3 },
   { "addClass", 30 },
   { "listClass", 3 },
   { "removeClass", 10 },
   { "count", 40 },
   { "start", 10 },
   { "startAgain", 2 },
   { "stop", 2 },
   { "fail", 3 },
   { "mount", 10 },
   { "destroy", 1 },
   { "leave", 1 },
   { "restart", 6 },
   { "slicesOf", 4 },
   { "slice", 20 },
   { "settle", 3 },
} };

constexpr std::string_view kInCall = "in call ";

Step parsedLine( const std::string & line ) {
   Step step{ Verb::settle };
   std::string_view rest = line;
   if ( rest.starts_with( kInCall ) ) {
      const std::size_t colon = rest.find( ": " );
      if ( colon == rest.npos ) { throw std::invalid_argument( "no colon" ); }
      step.call = std::stoi( std::string( rest.substr( kInCall.size() ) ) );
      rest.remove_prefix( colon + 2 );
   }
   std::istringstream words{ std::string( rest ) };
   std::string name;
   if ( !( words >> name >> step.n ) || !( words >> std::ws ).eof() || step.call < -1 ) {
      throw std::invalid_argument( "not a verb and a number" );
   }
   for ( int verb = 0; verb < kVerbs; ++verb ) {
      step.verb = static_cast< Verb >( verb );
      if ( nameOf( step.verb ) == name ) { return step; }
   }
   throw std::invalid_argument( "unknown verb" );
}

/// The same numbers everywhere, unlike the distributions of the standard library.
class Dice {
 public:
   explicit Dice( std::uint64_t seed ) : state_( seed ) {}

   unsigned below( unsigned bound ) {
      state_ += 0x9e3779b97f4a7c15;
      std::uint64_t word = state_;
      word = ( word ^ ( word >> 30 ) ) * 0xbf58476d1ce4e5b9;
      word = ( word ^ ( word >> 27 ) ) * 0x94d049bb133111eb;
      return static_cast< unsigned >( ( word ^ ( word >> 31 ) ) >> 32 ) % bound;
   }

 private:
   std::uint64_t state_;
};

} // namespace

std::string_view nameOf( Verb verb ) { return kinds[static_cast< std::size_t >( verb )].name; }

std::ostream & operator<<( std::ostream & os, const Step & step ) {
   if ( step.call != Step::kAtOnce ) { os << kInCall << step.call << ": "; }
   return os << nameOf( step.verb ) << ' ' << step.n;
}

std::ostream & operator<<( std::ostream & os, const Script & script ) {
   for ( const Step & step : script ) { os << step << '\n'; }
   return os;
}

Script parsed( std::istream & text ) {
   Script script;
   for ( std::string line; std::getline( text, line ); ) {
      if ( line.empty() || line.starts_with( '#' ) ) { continue; }
      try {
         script.push_back( parsedLine( line ) );
      } catch ( const std::logic_error & what ) {
         throw std::runtime_error( "'" + line + "': " + what.what() );
      }
   }
   return script;
}

Script generated( std::uint64_t seed, std::size_t length ) {
   Dice dice( seed );
   constexpr unsigned kFactors[] = { 0, 1, 1, 1, 4 };
   std::vector< Verb > bag;
   for ( int n = 0; n < kVerbs; ++n ) {
      const auto verb = static_cast< Verb >( n );
      const unsigned factor = kFactors[dice.below( std::size( kFactors ) )];
      const bool isVital = verb == Verb::addClass || verb == Verb::slice;
      bag.insert( bag.end(),
                  kinds[static_cast< std::size_t >( n )].weight *
                     ( isVital ? std::max( factor, 1U ) : factor ),
                  verb );
   }
   constexpr unsigned kCallPercents[] = { 0, 5, 15, 40 };
   const unsigned callPercent = kCallPercents[dice.below( std::size( kCallPercents ) )];
   const unsigned calls = 1 + dice.below( 8 );
   const unsigned names = 2 + dice.below( 40 );

   Script script = { { Verb::mount, dice.below( 8 ) }, { Verb::start } };
   while ( script.size() < length ) {
      Step step{ bag[dice.below( static_cast< unsigned >( bag.size() ) )], dice.below( names ) };
      if ( isForCalls( step.verb ) && dice.below( 100 ) < callPercent ) {
         step.call = static_cast< int >( dice.below( calls ) );
      }
      script.push_back( step );
   }
   // Some are torn down in the middle of whatever it is.
   if ( dice.below( 4 ) != 0 ) { script.push_back( { Verb::settle } ); }
   return script;
}

} // namespace VeloSdkRpc::simulation
