// Clients of every speed that break off anywhere and come back with any token, while the tree
// changes at random. Whenever everything has come to rest, what each of them has put together is
// the published state.

#include "agent/test/StreamWorld.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <ostream>
#include <rapidcheck/gtest.h>

namespace VeloAgent::test {
namespace {

enum class Verb {
   addClass,
   removeClass,
   removePolicy,
   count,
   slice,
   slicesOf,
   rest,
   take,
   takeAll,
   breakOff,
   comeBack,
   beginAnew,
   wait,
   waitLong,
};

/// Something that happens; `n` says to what, or how much.
struct Deed {
   Verb verb;
   unsigned n;
};
using Deeds = std::vector< Deed >;

std::ostream & operator<<( std::ostream & os, const Deed & deed ) {
   static constexpr const char * kNames[] = {
      "addClass", "removeClass", "removePolicy", "count",    "slice",     "slicesOf", "rest",
      "take",     "takeAll",     "breakOff",     "comeBack", "beginAnew", "wait",     "waitLong" };
   return os << kNames[static_cast< int >( deed.verb )] << "( " << deed.n << " )";
}

/// Half of what happens, happens to the tree.
rc::Gen< Deeds > deeds() {
   const auto one = rc::gen::weightedElement< Verb >( { { 8, Verb::addClass },
                                                        { 4, Verb::removeClass },
                                                        { 1, Verb::removePolicy },
                                                        { 8, Verb::count },
                                                        { 8, Verb::slice },
                                                        { 2, Verb::slicesOf },
                                                        { 1, Verb::rest },
                                                        { 8, Verb::take },
                                                        { 2, Verb::takeAll },
                                                        { 2, Verb::breakOff },
                                                        { 6, Verb::comeBack },
                                                        { 1, Verb::beginAnew },
                                                        { 2, Verb::wait },
                                                        { 1, Verb::waitLong } } );
   return rc::gen::container< Deeds >(
      rc::gen::construct< Deed >( one, rc::gen::inRange( 0U, 1000U ) ) );
}

class Story {
 public:
   void play( const Deed & deed ) {
      StreamClient & client = clients_[deed.n % clients_.size()];
      const unsigned n = deed.n / static_cast< unsigned >( clients_.size() );
      const std::string policy = "p" + std::to_string( n % 2 );
      const std::string name = "c" + std::to_string( n / 2 % 6 );
      auto * const map = world_.tree.policyMap( policy );
      const bool exists = map && map->classCountersMutable( name );
      switch ( deed.verb ) {
      case Verb::addClass:
         if ( !exists ) { world_.tree.addClass( policy, name, deed.n ); }
         break;
      case Verb::removeClass:
         world_.tree.removeClass( policy, name );
         break;
      case Verb::removePolicy:
         world_.tree.removePolicy( policy );
         break;
      case Verb::count:
         if ( exists ) { world_.tree.count( policy, name, ++counted_ ); }
         break;
      case Verb::slice:
         world_.loop.runOne();
         break;
      case Verb::slicesOf:
         world_.loop.yieldsAfter( n % 5 );
         break;
      case Verb::rest:
         rest();
         break;
      case Verb::take:
         client.takes();
         break;
      case Verb::takeAll:
         while ( client.takes() ) { world_.loop.runUntilIdle(); }
         break;
      case Verb::breakOff:
         client.breaksOff();
         break;
      case Verb::comeBack:
         client.returns( n % 8 );
         break;
      case Verb::beginAnew:
         client.begins();
         break;
      case Verb::wait:
         world_.passes( std::chrono::seconds( n % 40 ) );
         break;
      case Verb::waitLong:
         world_.passes( std::chrono::seconds( 100 ) );
         break;
      }
      for ( StreamClient & each : clients_ ) { RC_ASSERT( each.faults.empty() ); }
      keepBooks();
   }

   /// Everybody takes what there is; whoever is not there, or was closed, comes back first.
   void rest() {
      for ( StreamClient & each : clients_ ) {
         if ( !each.hasCall() || each.call().closed() ) { each.returns(); }
      }
      world_.settle( { &clients_[0], &clients_[1], &clients_[2] } );
      for ( StreamClient & each : clients_ ) {
         RC_ASSERT( each.faults.empty() );
         RC_ASSERT( each.knows().inSync );
         RC_ASSERT( each.contents() == world_.tree.contents() );
         RC_ASSERT( each.knows().names.size() == world_.fanout->latest().size() );
         RC_ASSERT( each.log.back().has_in_sync() || each.log.back().has_opened() ||
                    each.log.back().batch().end_of_batch() );
      }
      keepBooks();
   }

 private:
   /// A short key stands for one long key, whoever is told, and for ever.
   void keepBooks() {
      for ( const StreamClient & each : clients_ ) {
         for ( const auto & [key, name] : each.knows().names ) {
            RC_ASSERT( names_.emplace( key, name ).first->second == name );
         }
      }
      RC_ASSERT( world_.streams.size() <= world_.options.mostClients );
   }

   StreamWorld world_{ StreamOptions{ .resumeTime = std::chrono::seconds( 60 ),
                                      .stallTime = std::chrono::seconds( 30 ),
                                      .drainTime = std::chrono::seconds( 5 ),
                                      .undoRecords = 20,
                                      .recordsPerMessage = 3,
                                      .namesPerMessage = 1'000,
                                      .mostClients = 5 } };
   std::array< StreamClient, 3 > clients_{ StreamClient( world_.streams ),
                                           StreamClient( world_.streams ),
                                           StreamClient( world_.streams, true ) };
   std::map< std::uint64_t, StreamClient::Name > names_;
   std::uint64_t counted_ = 0;
};

RC_GTEST_PROP( PbrStreamProperty, WhatClientsPutTogetherIsThePublishedState, () ) {
   const Deeds script = *rc::gen::resize( 400, deeds() );
   Story story;
   for ( const Deed & deed : script ) { story.play( deed ); }
   story.rest();
}

} // namespace
} // namespace VeloAgent::test
