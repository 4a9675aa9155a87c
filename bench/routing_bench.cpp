/// The routing configuration managers at 10^3, 10^5 and 10^6 entries.
///
/// `ns` is per entry, in this thread's own time, `reference_ns` that of the same work by hand
/// (Routing.h) in the same run, and `ratio` the first over the second. What is `Watched` has a
/// subscriber that is told of every change; by hand nobody is told anything.

#include <memory>
#include <string>

#include "Measure.h"
#include "Routing.h"

namespace bench {
namespace {

/// A manager, the reference, and what is configured in both.
template< class Mgr, class Reference >
class Both {
 public:
   using Item = typename Mgr::Item;

   Both( benchmark::State & state )
      : state_( state ),
        items_( itemsInRandomOrder< Mgr >( static_cast< std::size_t >( state.range( 0 ) ) ) ) {}

   std::size_t count() const { return items_.size(); }

   template< class Subject >
   void setAll( Subject & subject ) const {
      for ( const Item & item : items_ ) { subject.set( item ); }
   }
   template< class Subject >
   void delAll( Subject & subject ) const {
      for ( const Item & item : items_ ) { subject.del( Mgr::keyOf( item ) ); }
   }
   /// In a bracket, the first of them in their order.
   template< class Subject >
   void send( Subject & subject, std::size_t howMany ) const {
      subject.init();
      for ( std::size_t i = 0; i < howMany; ++i ) { subject.set( items_[i] ); }
   }
   void changeWeights() {
      for ( Item & item : items_ ) { Mgr::changeWeight( item ); }
   }
   void expectSize( std::size_t size ) const {
      if ( mgr->size() != size || reference->size() != size ) {
         state_.SkipWithError( "entries are missing, or too many" );
      }
   }

   std::unique_ptr< Mgr > mgr = std::make_unique< Mgr >();
   std::unique_ptr< Reference > reference = std::make_unique< Reference >();

 private:
   benchmark::State & state_;
   std::vector< Item > items_;
};

template< class B >
void setNew( benchmark::State & state ) {
   B both( state );
   SideBySide times( state, both.count() );
   for ( auto _ : state ) {
      times.round( [&] { both.setAll( *both.mgr ); }, [&] { both.setAll( *both.reference ); } );
      both.expectSize( both.count() );
      both.mgr = std::make_unique< typename decltype( both.mgr )::element_type >();
      both.reference = std::make_unique< typename decltype( both.reference )::element_type >();
   }
}

/// With another weight.
template< class B >
void setAgain( benchmark::State & state ) {
   B both( state );
   SideBySide times( state, both.count() );
   both.setAll( *both.mgr );
   both.setAll( *both.reference );
   for ( auto _ : state ) {
      both.changeWeights();
      times.round( [&] { both.setAll( *both.mgr ); }, [&] { both.setAll( *both.reference ); } );
   }
   both.expectSize( both.count() );
}

/// All of them, as they are.
template< class B >
void setInResync( benchmark::State & state ) {
   B both( state );
   SideBySide times( state, both.count() );
   both.setAll( *both.mgr );
   both.setAll( *both.reference );
   for ( auto _ : state ) {
      times.round( [&] { both.send( *both.mgr, both.count() ); },
                   [&] { both.send( *both.reference, both.count() ); } );
      both.mgr->complete();
      both.reference->complete();
   }
   both.expectSize( both.count() );
}

template< class B >
void del( benchmark::State & state ) {
   B both( state );
   SideBySide times( state, both.count() );
   for ( auto _ : state ) {
      both.setAll( *both.mgr );
      both.setAll( *both.reference );
      times.round( [&] { both.delAll( *both.mgr ); }, [&] { both.delAll( *both.reference ); } );
      both.expectSize( 0 );
   }
}

/// After `tenths` of the entries were sent again.
template< class B, unsigned tenths >
void complete( benchmark::State & state ) {
   B both( state );
   SideBySide times( state, both.count() );
   const std::size_t sent = both.count() * tenths / 10;
   for ( auto _ : state ) {
      both.setAll( *both.mgr );
      both.setAll( *both.reference );
      both.send( *both.mgr, sent );
      both.send( *both.reference, sent );
      times.round( [&] { both.mgr->complete(); }, [&] { both.reference->complete(); } );
      both.expectSize( sent );
   }
}

template< class B >
void registerAll( const std::string & what, int entries, int rounds ) {
   const std::pair< const char *, void ( * )( benchmark::State & ) > all[] = {
      { "setNew", setNew< B > },
      { "setAgain", setAgain< B > },
      { "setInResync", setInResync< B > },
      { "del", del< B > },
      { "completeNothingSent", complete< B, 0 > },
      { "completeHalfSent", complete< B, 5 > },
      { "completeAllSent", complete< B, 10 > } };
   for ( const auto & [name, measured] : all ) {
      benchmark::RegisterBenchmark( ( what + "-" + name ).c_str(), measured )
         ->Arg( entries )
         ->Iterations( rounds )
         ->UseManualTime()
         ->Unit( benchmark::kMillisecond );
   }
}

[[maybe_unused]] const bool registered = [] {
   const std::pair< int, int > roundsBySize[] = { { 1000, 301 }, { 100'000, 9 }, { 1'000'000, 3 } };
   for ( const auto & [entries, rounds] : roundsBySize ) {
      registerAll< Both< LinkWeightMgr, LinkWeightsByHand > >( "linkWeight", entries, rounds );
      registerAll< Both< ViaOverrideMgr, ViaOverridesByHand > >( "via", entries, rounds );
      registerAll< Both< Watched< LinkWeightMgr >, LinkWeightsByHand > >( "linkWeightWatched",
                                                                          entries, rounds );
      registerAll< Both< Watched< ViaOverrideMgr >, ViaOverridesByHand > >( "viaWatched", entries,
                                                                            rounds );
   }
   return true;
}();

} // namespace
} // namespace bench
