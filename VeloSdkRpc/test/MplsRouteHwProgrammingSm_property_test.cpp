// Random changes of routes, acknowledgements and names: against the rules written down naively, and
// with clients that interfere.

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Lumo/ScopeExit.h"
#include "VeloSdkRpc/test/MplsState.h"
#include "VeloSdkRpc/test/NaiveMplsRules.h"

namespace VeloSdkRpc::test {
namespace {

constexpr std::uint32_t kLabels = 12;
constexpr MplsState::Group kGroups = 3;

// A quiet client ----------------------------------------------------------------------------------

/// One change. Few values of each kind, so that they meet.
struct Change {
   enum Kind { put, touch, remove, name, unname } kind;
   Route route;
   MplsState::Group group;
   std::string groupName;
};

[[maybe_unused]] void showValue( const Change & change, std::ostream & os ) {
   os << change.kind << " " << change.route << " " << change.group << " '" << change.groupName
      << "'";
}

rc::Gen< Route > routes() {
   const auto mostly = []( std::uint32_t usual, std::uint32_t end ) {
      return rc::gen::weightedOneOf< std::uint32_t >(
         { { 4, rc::gen::just( usual ) }, { 1, rc::gen::inRange( 0U, end ) } } );
   };
   const auto fecs = rc::gen::map(
      rc::gen::pair( mostly( 3, 5 ), rc::gen::inRange( 0U, kGroups ) ), []( const auto & parts ) {
         return FecId( std::uint64_t{ parts.first } << 56 | parts.second );
      } );
   const auto acks =
      rc::gen::construct< AckInfo >( fecs, rc::gen::inRange( 0U, 4U ), mostly( 1, 3 ),
                                     rc::gen::cast< std::uint8_t >( mostly( 0, 3 ) ) );
   const auto optionalAcks = rc::gen::weightedOneOf< Quon::Optional< AckInfo > >(
      { { 7, rc::gen::construct< Quon::Optional< AckInfo > >( acks ) },
        { 1, rc::gen::construct< Quon::Optional< AckInfo > >() } } );
   return rc::gen::construct< Route >(
      rc::gen::construct< RouteKey >( rc::gen::inRange( 0U, kLabels ) ), optionalAcks,
      rc::gen::cast< std::uint8_t >( mostly( 0, 2 ) ) );
}

} // namespace
} // namespace VeloSdkRpc::test

template<>
struct rc::Arbitrary< VeloSdkRpc::test::Change > {
   static Gen< VeloSdkRpc::test::Change > arbitrary() {
      using VeloSdkRpc::test::Change;
      return gen::build< Change >(
         gen::set( &Change::kind,
                   gen::weightedElement< Change::Kind >( { { 8, Change::put },
                                                           { 2, Change::touch },
                                                           { 2, Change::remove },
                                                           { 4, Change::name },
                                                           { 2, Change::unname } } ) ),
         gen::set( &Change::route, VeloSdkRpc::test::routes() ),
         gen::set( &Change::group, gen::inRange( 0U, VeloSdkRpc::test::kGroups ) ),
         gen::set( &Change::groupName, gen::element< std::string >( "", "spine", "leaf" ) ) );
   }
};

namespace VeloSdkRpc::test {
namespace {

std::vector< std::string > sortedTexts( const std::vector< Route > & routes ) {
   std::vector< std::string > texts;
   for ( const Route & route : routes ) { texts.push_back( Quon::text( route ) ); }
   std::ranges::sort( texts );
   return texts;
}

using Parked = std::map< MplsState::Group, std::set< std::uint32_t > >;

Parked parkedIn( const MplsRouteHwProgrammingSm & sm ) {
   Parked all;
   for ( const auto & entry : sm.fecIdToMplsRouteKeySet() ) {
      auto & labels = all[FecId::fecIdToNexthopGroupId( entry.fwkKey() )];
      for ( const auto & node : entry.value()->mplsRouteKeySet() ) {
         labels.insert( node.fwkKey().label() );
      }
   }
   return all;
}

RC_GTEST_PROP( MplsRules, HoldForRandomChanges,
               ( const std::vector< Change > & changes, bool tracing ) ) {
   std::optional< Lumo::CapturingTraceSink > traces;
   if ( tracing ) { traces.emplace(); }
   MplsState state;
   MplsClient client;
   NaiveMplsRules rules;
   const auto sm = MplsRouteHwProgrammingSmIs( client.callback(), state.status, state.groups );
   const auto both = [&]( const Change & change, auto & side ) {
      switch ( change.kind ) {
      case Change::put:
         return side.put( change.route );
      case Change::touch:
         // There must be something to touch; both sides agree about that.
         if ( rules.routes.contains( change.route.key().label() ) ) {
            side.touch( change.route.key().label() );
         }
         return;
      case Change::remove:
         return side.remove( change.route.key().label() );
      case Change::name:
         return side.name( change.group, change.groupName );
      case Change::unname:
         return side.unname( change.group );
      }
   };
   for ( const Change & change : changes ) {
      client.told.clear();
      rules.told.clear();
      both( change, state );
      both( change, rules );
      RC_ASSERT( sortedTexts( client.told ) == sortedTexts( rules.told ) );
      RC_ASSERT( parkedIn( *sm ) == rules.parked );
   }
   RC_CLASSIFY( !rules.parked.empty(), "routes are parked in the end" );
}

// Clients that interfere --------------------------------------------------------------------------

/// Something done to the state, by us or by the client in the middle of a call. Every change of a
/// route is a new version over the route's one group, and no group loses its name: so every version
/// that is not replaced before its turn is to be told, once.
struct Deed {
   enum Kind { change, rename, breakDown, nothing } kind;
   std::uint32_t label;
   MplsState::Group group;
};

[[maybe_unused]] void showValue( const Deed & deed, std::ostream & os ) {
   os << "{" << deed.kind << " " << deed.label << " " << deed.group << "}";
}

} // namespace
} // namespace VeloSdkRpc::test

template<>
struct rc::Arbitrary< VeloSdkRpc::test::Deed > {
   static Gen< VeloSdkRpc::test::Deed > arbitrary() {
      using VeloSdkRpc::test::Deed;
      return gen::build< Deed >(
         gen::set( &Deed::kind, gen::weightedElement< Deed::Kind >( { { 6, Deed::change },
                                                                      { 3, Deed::rename },
                                                                      { 1, Deed::breakDown },
                                                                      { 1, Deed::nothing } } ) ),
         gen::set( &Deed::label, gen::inRange( 0U, VeloSdkRpc::test::kLabels ) ),
         gen::set( &Deed::group, gen::inRange( 0U, VeloSdkRpc::test::kGroups ) ) );
   }
};

namespace VeloSdkRpc::test {
namespace {

/// Does one deed of its own in every call, as long as it has any.
class Disrupter {
 public:
   explicit Disrupter( std::vector< Deed > ownDeeds ) : ownDeeds_( std::move( ownDeeds ) ) {
      std::ranges::reverse( ownDeeds_ );
   }

   void act( const Deed & deed ) {
      switch ( deed.kind ) {
      case Deed::change:
         return state.put( deed.label, deed.label % kGroups, ++versions[deed.label] );
      case Deed::rename:
         return state.name( deed.group, std::to_string( ++names_ ) );
      case Deed::breakDown:
         broke = true;
         throw std::runtime_error( "client" );
      case Deed::nothing:
         return;
      }
   }
   /// From outside. What the client throws ends here.
   void actSafely( const Deed & deed ) {
      try {
         act( deed );
      } catch ( const std::runtime_error & ) {}
   }

   OnMplsRouteHwProgrammingUpdate callback() {
      return [this]( const Route & route ) {
         ++told[{ route.key().label(), route.ackInfo()->routeVersion() }];
         if ( ownDeeds_.empty() ) { return; }
         const Deed deed = ownDeeds_.back();
         ownDeeds_.pop_back();
         deepest = std::max( deepest, ++depth_ );
         const auto back = Lumo::onScopeExit( [this] { --depth_; } );
         act( deed );
      };
   }
   void calmDown() { ownDeeds_.clear(); }

   MplsState state;
   std::map< std::uint32_t, std::uint32_t > versions;               ///< The current one, by label.
   std::map< std::pair< std::uint32_t, std::uint32_t >, int > told; ///< By label and version.

   bool broke = false;
   int deepest = 0; ///< How deep calls were nested in which the client did something.

 private:
   int depth_ = 0;
   std::vector< Deed > ownDeeds_;
   int names_ = 0;
};

RC_GTEST_PROP( MplsRules, NothingIsLostOrToldTwiceWhateverTheClientDoes,
               ( const std::vector< Deed > & deeds, const std::vector< Deed > & clientDeeds ) ) {
   Disrupter client( clientDeeds );
   const auto sm =
      MplsRouteHwProgrammingSmIs( client.callback(), client.state.status, client.state.groups );
   for ( std::uint32_t label = 0; label < kLabels; ++label ) {
      client.act( { Deed::change, label, 0 } ); // All of them are parked.
   }
   for ( const Deed & deed : deeds ) { client.actSafely( deed ); }
   client.calmDown();
   for ( MplsState::Group group = 0; group < kGroups; ++group ) {
      client.act( { Deed::rename, 0, group } );
   }
   for ( const auto & [what, times] : client.told ) { RC_ASSERT( times == 1 ); }
   for ( const auto & [label, version] : client.versions ) {
      RC_ASSERT( client.told.contains( { label, version } ) );
   }
   RC_ASSERT( sm->fecIdToMplsRouteKeySet().empty() );
   RC_ASSERT( sm->references() == 1U );
   RC_CLASSIFY( client.broke, "the client threw" );
   RC_CLASSIFY( client.deepest > 2, "calls within calls within calls" );
}

} // namespace
} // namespace VeloSdkRpc::test
