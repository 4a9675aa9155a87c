/// What the routing configuration managers do with a number of entries, and the same by hand
/// (Routing.h).

#include "Instructions.h"
#include "Routing.h"

namespace bench {
namespace {

/// A manager, or the reference, and what is to be configured in it.
template< class Subject >
struct Configured {
   explicit Configured( std::size_t count ) : items( itemsInRandomOrder< Subject >( count ) ) {}

   void setAll() { send( items.size() ); }
   void send( std::size_t howMany ) {
      for ( std::size_t i = 0; i < howMany; ++i ) { subject.set( items[i] ); }
   }
   void changeWeights() {
      for ( auto & item : items ) { Subject::changeWeight( item ); }
   }
   void delAll() {
      for ( const auto & item : items ) { subject.del( Subject::keyOf( item ) ); }
   }

   std::vector< typename Subject::Item > items;
   Subject subject;
};

template< class Subject >
std::size_t setNew( std::size_t count ) {
   Configured< Subject > configured( count );
   counted( [&] { configured.setAll(); } );
   return count;
}

template< class Subject >
std::size_t setAgain( std::size_t count ) {
   Configured< Subject > configured( count );
   configured.setAll();
   configured.changeWeights();
   counted( [&] { configured.setAll(); } );
   return count;
}

template< class Subject >
std::size_t setInResync( std::size_t count ) {
   Configured< Subject > configured( count );
   configured.setAll();
   configured.subject.init();
   counted( [&] { configured.setAll(); } );
   return count;
}

template< class Subject >
std::size_t del( std::size_t count ) {
   Configured< Subject > configured( count );
   configured.setAll();
   counted( [&] { configured.delAll(); } );
   return count;
}

template< class Subject, std::size_t tenths >
std::size_t complete( std::size_t count ) {
   Configured< Subject > configured( count );
   configured.setAll();
   configured.subject.init();
   configured.send( count * tenths / 10 );
   counted( [&] { configured.subject.complete(); } );
   return count;
}

template< class Subject >
void add( CountedWorks & works, const std::string & of ) {
   works["setNew" + of] = setNew< Subject >;
   works["setAgain" + of] = setAgain< Subject >;
   works["setInResync" + of] = setInResync< Subject >;
   works["del" + of] = del< Subject >;
   works["completeNothingSent" + of] = complete< Subject, 0 >;
   works["completeHalfSent" + of] = complete< Subject, 5 >;
   works["completeAllSent" + of] = complete< Subject, 10 >;
}

} // namespace
} // namespace bench

int main( int argc, char ** argv ) {
   bench::CountedWorks works;
   bench::add< bench::LinkWeightMgr >( works, "Weights" );
   bench::add< bench::Watched< bench::LinkWeightMgr > >( works, "WeightsWatched" );
   bench::add< bench::LinkWeightsByHand >( works, "WeightsReference" );
   bench::add< bench::LinkWeightsByHand >( works, "WeightsWatchedReference" );
   bench::add< bench::ViaOverrideMgr >( works, "Vias" );
   bench::add< bench::Watched< bench::ViaOverrideMgr > >( works, "ViasWatched" );
   bench::add< bench::ViaOverridesByHand >( works, "ViasReference" );
   bench::add< bench::ViaOverridesByHand >( works, "ViasWatchedReference" );
   return bench::countInstructions( works, argc, argv );
}
