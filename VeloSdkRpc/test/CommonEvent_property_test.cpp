// The short way of the common event against the rules: one script is played twice, by a machine
// that takes the short way where it can and by one that is fed changed counters through its rules.

#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Quon/KeyedCollectionModel.h"
#include "VeloSdkRpc/test/BacklogMachineTest.h"
#include "VeloSdkRpc/test/Consumers.h"

namespace VeloSdkRpc::test {
namespace {

using Quon::test::require;

enum class Play {
   addClass,
   removeClass,
   removePolicy,
   count,
   drain,
   withdraw,
   fileDeletion,
   forgetPairing,
   renumber,
   makeNovel,
   restart,
};

struct Move {
   Play play;
   unsigned n;
};

std::ostream & operator<<( std::ostream & os, const Move & move ) {
   static constexpr const char * kNames[] = {
      "addClass",     "removeClass",   "removePolicy", "count",     "drain",  "withdraw",
      "fileDeletion", "forgetPairing", "renumber",     "makeNovel", "restart" };
   return os << kNames[static_cast< int >( move.play )] << "( " << move.n << " )";
}

/// What can be seen of one side.
struct Sight {
   struct Record {
      PbrCountersKey longKey;
      bool hasData, deleted;
      std::uint64_t packets;
      friend bool operator==( const Record &, const Record & ) = default;
   };
   std::map< std::uint64_t, Record > pending;
   std::vector< std::uint64_t > changed;                      ///< Keys that the backlog published.
   std::vector< std::pair< std::uint64_t, bool > > delivered; ///< With `encodeLongKey`.
   std::map< CountersTree::Name, std::uint64_t > known;
   std::vector< std::uint64_t > novel;
   std::uint64_t nextKey = 0;
   PbrCountersBacklogAccount account;
   bool threw = false;
   friend bool operator==( const Sight &, const Sight & ) = default;
};

/// A machine over a world of its own.
class Side {
 public:
   /// A machine whose handle is enabled takes no short way. (It uses no level 6: nothing is
   /// traced.) Nor does it remember short keys if changed counters are not heard but told to it.
   explicit Side( bool byTheRules ) : byTheRules_( byTheRules ) {
      handle_->levelsIs( byTheRules ? Lumo::traceLevels( 6 ) : 0 );
      world_.backlog->frontendIs( consumer_ );
      restart();
   }

   Sight played( const Move & move ) {
      changed_.clear();
      consumer_->items.clear();
      bool threw = false;
      try {
         play( move );
      } catch ( const Quon::BadOptionalAccess & ) { threw = true; }
      return sight( threw );
   }

 private:
   void play( const Move & move ) {
      const std::string policy = "p" + std::to_string( move.n % 2 );
      const std::string name = "c" + std::to_string( move.n / 2 % 3 );
      const std::uint64_t key = move.n % 12 + 1;
      const auto * const map = world_.tree.policyMap( policy );
      const bool exists = map && map->classCounters()[Lumo::String( name )];
      switch ( move.play ) {
      case Play::addClass:
         if ( !exists ) { world_.tree.addClass( policy, name, ++packets_ ); }
         break;
      case Play::removeClass:
         world_.tree.removeClass( policy, name );
         break;
      case Play::removePolicy:
         world_.tree.removePolicy( policy );
         break;
      case Play::count:
         if ( exists ) { count( policy, name ); }
         break;
      case Play::drain:
         world_.backlog->process( nullptr );
         break;
      case Play::withdraw:
         world_.backlog->backlogDel( key );
         break;
      case Play::fileDeletion:
         world_.backlog->backlogIs(
            PbrCounters( key, World::longKey( policy, name ), nullptr, true ) );
         break;
      case Play::forgetPairing:
         world_.table->shortKeyDel( World::longKey( policy, name ) );
         break;
      case Play::renumber:
         world_.table->shortKeyIs( World::longKey( policy, name ), world_.table->nextKeyInc( 1 ) );
         break;
      case Play::makeNovel:
         world_.table->novelKeyIs( key );
         break;
      case Play::restart:
         restart();
         break;
      }
   }

   void count( const std::string & policy, const std::string & name ) {
      if ( !byTheRules_ ) { return world_.tree.count( policy, name, ++packets_ ); }
      const auto machine = sm_->rootSm0()
                              ->childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst(
                                 PolicyMapKey( policy ) )
                              ->childSmClassCountersPolicyMapCountersCountersDataPtrConst( name );
      machine->hasNotificationActiveIs( false );
      world_.tree.count( policy, name, ++packets_ );
      machine->hasNotificationActiveIs( true );
      sm_->eventToInput( PolicyMapKey( policy ), name, machine->en() );
   }

   void restart() {
      sm_ = nullptr;
      Ivx::SmControl control( nullptr, 0, {}, kSynchronous );
      control.qtHandleIs( handle_.get() );
      sm_ = pbrCountersBacklogSmFactory( world_.tree.root, world_.backlog, world_.table, control );
   }

   Sight sight( bool threw ) const {
      Sight now;
      for ( const auto & entry : world_.backlog->backlog() ) {
         const PbrCounters & c = entry.value();
         now.pending[entry.fwkKey()] = { c.longKey(), static_cast< bool >( c.data() ),
                                         c.deletedKey(),
                                         c.data() ? c.data()->countData().packets() : 0 };
      }
      now.changed = changed_;
      for ( const auto & item : consumer_->items ) {
         now.delivered.emplace_back( item.shortKey, item.encodeLongKey );
      }
      now.known = world_.known();
      for ( const auto & entry : world_.table->novelKey() ) {
         now.novel.push_back( entry.fwkKey() );
      }
      now.nextKey = world_.table->nextKey();
      now.account = world_.backlog->account();
      now.threw = threw;
      return now;
   }

   const bool byTheRules_;
   World world_;
   const Lumo::Ptr< Lumo::TraceHandle > handle_ = Lumo::makeNode< Lumo::TraceHandle >( "side" );
   const Lumo::Ptr< RecordingConsumer > consumer_ = Lumo::makeNode< RecordingConsumer >();
   std::vector< std::uint64_t > changed_;
   const Lumo::Ptr< ActsOnChange > listening_ = Lumo::makeNode< ActsOnChange >(
      world_.backlog->publisher(), [this]( short id, const void * key, const void * ) {
         if ( id == PbrCountersBacklog::kBacklog ) {
            changed_.push_back( *static_cast< const std::uint64_t * >( key ) );
         }
      } );
   Lumo::Ptr< PbrCountersBacklogSm > sm_;
   std::uint64_t packets_ = 0;
};

RC_GTEST_PROP( CommonEventProperty, TheShortWayComesToTheSameAsTheRules, () ) {
   const std::vector< Play > plays = {
      Play::addClass,      Play::addClass, Play::addClass,    Play::count,       Play::count,
      Play::count,         Play::count,    Play::count,       Play::count,       Play::drain,
      Play::drain,         Play::withdraw, Play::makeNovel,   Play::renumber,    Play::fileDeletion,
      Play::forgetPairing, Play::restart,  Play::removeClass, Play::removePolicy };
   const auto moves =
      *rc::gen::resize( 200, rc::gen::container< std::vector< Move > >( rc::gen::construct< Move >(
                                rc::gen::elementOf( plays ), rc::gen::inRange( 0U, 12U ) ) ) );
   Side shortWay( false ), rules( true );
   for ( const Move & move : moves ) {
      const Sight seen = shortWay.played( move );
      const Sight expected = rules.played( move );
      require( seen.pending == expected.pending );
      require( seen.changed == expected.changed );
      require( seen.account == expected.account );
      require( seen.account.isBalanced() );
      require( seen == expected );
   }
}

} // namespace
} // namespace VeloSdkRpc::test
