// The draining loop, over collections of several kinds, against a naive model of it.

#include <algorithm>
#include <map>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/KeyedCollectionModel.h"
#include "VeloSdkRpc/detail/ProcessBacklog.h"
#include "VeloSdkRpc/test/BacklogScript.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/NaiveBacklog.h"

namespace VeloSdkRpc::test {
namespace {

using Quon::test::require;

/// The real loop, over any collection.
template< class Collection >
class RealBacklog {
 public:
   using Key = typename Collection::Key;
   using Value = typename Collection::Value;

   void file( const Key & key, const Value & value ) { pending.memberIs( key, value ); }
   void del( const Key & key ) { pending.deleteMember( key ); }

   template< class ShouldYield, class Action, class Outdated >
   void drain( ShouldYield && shouldYield, Action && action, Outdated && outdated ) {
      progress = QuonLumo::Impl::_processBacklog(
         pending, bookmark, shouldYield, action, outdated,
         [this]( const QuonLumo::MiBacklogProgress & broken ) { progress = broken; } );
   }

   Collection pending;
   Quon::Optional< Key > bookmark;
   QuonLumo::MiBacklogProgress progress;
};

/// What can be seen of one run.
template< class Key, class Value >
struct Seen {
   using Entries = std::vector< std::pair< Key, Value > >;
   Entries delivered; ///< Also a record whose delivery failed.
   bool failed = false;
   unsigned asks = 0;
   QuonLumo::MiBacklogProgress progress;
   Entries pending;
   std::vector< Key > bookmark; ///< None or one.

   friend bool operator==( const Seen &, const Seen & ) = default;
};

/// Plays a script with one kind of backlog. Every filing has a value of its own, so that two sides
/// that play the same script file the same values.
template< class Types, template< class > class Backlog >
class Player {
 public:
   using Collection = typename Types::Collection;
   using Key = typename Collection::Key;
   using Value = typename Collection::Value;

   Seen< Key, Value > play( const Step & step ) {
      for ( const Deed & deed : step.before ) { perform( deed ); }
      Seen< Key, Value > seen;
      outdated_ = false;
      try {
         backlog_.drain( [&] { return seen.asks++ >= step.goOns; },
                         [&]( const Key & key, const Value & value ) {
                            const std::size_t call = seen.delivered.size();
                            seen.delivered.emplace_back( key, value );
                            if ( call >= step.during.size() ) { return; }
                            for ( const Deed & deed : step.during[call] ) { perform( deed ); }
                         },
                         [this] { return outdated_; } );
      } catch ( const ConsumerBroke & ) { seen.failed = true; }
      seen.progress = backlog_.progress;
      for ( const auto & entry : backlog_.pending ) { seen.pending.push_back( pairOf( entry ) ); }
      if ( backlog_.bookmark ) { seen.bookmark.push_back( *backlog_.bookmark ); }
      return seen;
   }

   /// The last value that was filed under each key, unless it was withdrawn since.
   std::map< unsigned, Value > filed;

 private:
   static std::pair< Key, Value > pairOf( const std::pair< const Key, Value > & entry ) {
      return entry;
   }
   static std::pair< Key, Value > pairOf( const auto & node ) {
      return { node.fwkKey(), node.value() };
   }

   void perform( const Deed & deed ) {
      const Key key = Types::key( deed.key );
      if ( deed.verb == Verb::fail ) { throw ConsumerBroke(); }
      if ( deed.verb == Verb::fileAnew ) {
         outdated_ = true;
      } else if ( deed.verb == Verb::withdraw ) {
         backlog_.del( key );
         filed.erase( deed.key );
      } else {
         const Value value = Types::value( deed.key, ++serial_ );
         backlog_.file( key, value );
         filed.insert_or_assign( deed.key, value );
      }
   }

   Backlog< Collection > backlog_;
   unsigned serial_ = 0;
   bool outdated_ = false; ///< All that the current run has taken.
};

const std::vector< Verb > kOutside = { Verb::file, Verb::file, Verb::file, Verb::withdraw };
const std::vector< Verb > kInside = { Verb::file, Verb::file, Verb::withdraw, Verb::fail };
const std::vector< Verb > kInsideAndAnew = { Verb::file, Verb::file, Verb::withdraw, Verb::fail,
                                             Verb::fileAnew };

template< class Types >
class DrainingLoopProperty : public testing::Test {};

using LoopTypes = testing::Types< Quon::test::Numbers, Quon::test::Records, Quon::test::FewHashes,
                                  Quon::test::OneHash >;
TYPED_TEST_SUITE( DrainingLoopProperty, LoopTypes );

TYPED_TEST( DrainingLoopProperty, AgreesWithItsStepsWrittenNaively ) {
   EXPECT_TRUE( rc::check( [] {
      Player< TypeParam, RealBacklog > real;
      Player< TypeParam, NaiveBacklog > naive;
      for ( const Step & step : *scripts( kOutside, kInsideAndAnew, 40 ) ) {
         const auto seen = real.play( step );
         const auto expected = naive.play( step );
         require( seen.delivered == expected.delivered );
         require( seen.failed == expected.failed );
         require( seen.asks == expected.asks );
         require( seen.progress == expected.progress );
         require( seen.pending == expected.pending );
         require( seen == expected );
      }
   } ) );
}

/// Needs no model: whatever happens, every filing is delivered at most once, in the order of filing
/// for each key, and the last one of each key is delivered in the end.
TYPED_TEST( DrainingLoopProperty, DeliversNoFilingTwiceAndTheLastOfEveryKey ) {
   using Value = typename TypeParam::Collection::Value;
   EXPECT_TRUE( rc::check( [] {
      Player< TypeParam, RealBacklog > real;
      std::vector< Value > delivered;
      const auto account = [&delivered]( auto seen ) {
         if ( seen.failed ) { seen.delivered.pop_back(); }
         for ( const auto & entry : seen.delivered ) { delivered.push_back( entry.second ); }
         return seen.pending.empty();
      };
      for ( const Step & step : *scripts( kOutside, kInside, 40 ) ) {
         account( real.play( step ) );
      }
      while ( !account( real.play( { {}, 3, {} } ) ) ) {}
      for ( const auto & [key, value] : real.filed ) {
         require( std::count( delivered.begin(), delivered.end(), value ) == 1 );
      }
      std::sort( delivered.begin(), delivered.end() );
      require( std::adjacent_find( delivered.begin(), delivered.end() ) == delivered.end() );
   } ) );
}

} // namespace
} // namespace VeloSdkRpc::test
