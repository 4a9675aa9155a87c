#pragma once

#include <algorithm>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Quon/KeyedCollectionModel.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"
#include "VeloSdkRpc/test/RunConformance.h"

/// A whole stream - tree, manager, loop, consumers that do anything - and a ledger of what is owed
/// to whom, compared with it at every step.
///
/// What is promised, and checked:
///
///   always        a short key stands for one long key, for ever, to whomever it is told;
///                 short keys grow and none is used again; the table has exactly the classes of
///                 the tree
///   who           only the consumer that began to watch last is told anything, also when idle
///   what          a record is delivered when its key changed since it was last delivered, once per
///                 run, and not otherwise; the start of streaming counts as a change of every class
///   batches       a push follows the records of a run
///   long keys     `encodeLongKey` comes with the first record of a key that appeared while
///                 streaming, and never for a key that was known before
///   nothing lost  what an unsuccessful delivery or the end of a slice left over is pending again
///                 and the backlog accounts for every record that ever arrived
///   quiet         when nothing is pending, a consumer
///                    - that watches since the stream was started knows exactly the tree
///                    - that took over from another while streaming knows exactly what was pending
///                      then and what changed since, and nothing that has gone
///                    - whose stream was stopped knows what it had been owed when it was: of what
///                      goes or comes later nobody tells it, not even if it starts again. So a
///                      client starts from nothing each time it starts watching
namespace VeloSdkRpc::test {

using Quon::test::require;
using Name = CountersTree::Name;
using Keys = std::set< std::uint64_t >;

enum class Verb {
   addClass,
   addClassWithoutCounters,
   removeClass,
   count,
   addPolicy,
   addNullPolicy,
   removePolicy,
   start,
   startAgain,
   stop,
   fail,
   slicesOf,
   slice,
   settle,
};

/// Something that somebody does; `n` says to what, or how much.
struct Deed {
   Verb verb;
   unsigned n;
};
using Deeds = std::vector< Deed >;

inline std::ostream & operator<<( std::ostream & os, const Deed & deed ) {
   static constexpr const char * kNames[] = { "addClass",     "addClassWithoutCounters",
                                              "removeClass",  "count",
                                              "addPolicy",    "addNullPolicy",
                                              "removePolicy", "start",
                                              "startAgain",   "stop",
                                              "fail",         "slicesOf",
                                              "slice",        "settle" };
   return os << kNames[static_cast< int >( deed.verb )] << "( " << deed.n << " )";
}

inline constexpr unsigned kPolicies = 3, kClasses = 4;

/// The stream with everything around it, and the ledger.
///
/// Clients keep to one thing more: a client that starts anew from inside a delivery drops the
/// record in hand, which belongs to the stream before.
class World {
 public:
   /// `beforeMounts` makes the tree; the n-th call of any consumer does the n-th of `whims`.
   World( const Deeds & beforeMounts, const std::vector< Deeds > & whims ) : whims_( whims ) {
      for ( const Deed & deed : beforeMounts ) { change( deed ); }
      shared_->entityIs( "policyMap/counters/pbr", tree_.root );
      mounts_.mountAll();
      look();
   }

   void play( const Deed & deed ) {
      switch ( deed.verb ) {
      case Verb::slicesOf:
         return loop_.yieldsAfter( deed.n % 5 );
      case Verb::slice:
         return slice();
      case Verb::settle:
         return settle();
      default:
         perform( deed );
         checkPending();
      }
   }

   void settle() {
      whimsRest_ = true;
      while ( loop_.pending() != 0 ) { slice(); }
      whimsRest_ = false;
      require( owed_.empty() );
      if ( !consumer_ ) { return; }
      Keys told;
      for ( const auto & [key, name] : consumer_->told ) { told.insert( key ); }
      require( told == promised_ );
      require( consumer_->pushed );
      if ( !streaming_ ) { return; }
      std::map< Name, std::uint64_t > expected;
      const auto contents = tree_.contents();
      for ( const std::uint64_t key : promised_ ) {
         expected[names_.at( key )] = contents.at( names_.at( key ) );
      }
      require( consumer_->contents() == expected );
      if ( sinceStart_ ) { require( consumer_->contents() == contents ); }
   }

 private:
   /// Keeps the contract, and asks the world what to do at every call.
   class Client final : public ReconstructingConsumer {
    public:
      explicit Client( World & world ) : world_( world ) {}
      void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) override {
         const unsigned lifeOfRecord = life;
         world_.delivered( *this, record, flags );
         if ( life != lifeOfRecord ) { return; } // It comes from before the new start.
         pushed = false;
         ReconstructingConsumer::appendItem( record, flags );
         if ( flags.deleteKey() ) { gone.insert( record.shortKey() ); }
      }
      void push() override {
         require( this == world_.consumer_.get() );
         pushed = true;
         world_.whim();
      }
      void forget() {
         told.clear();
         state.clear();
         gone.clear();
         pushed = true;
         ++life;
      }

      Keys gone;
      unsigned life = 0;
      bool pushed = true; ///< Since it was told a record.

    private:
      World & world_;
   };

   // What may be done
   // ------------------------------------------------------------------------------

   void perform( const Deed & deed ) {
      switch ( deed.verb ) {
      case Verb::start:
         return start( Lumo::makeNode< Client >( *this ) );
      case Verb::startAgain:
         return start( consumer_ ? consumer_ : Lumo::makeNode< Client >( *this ) );
      case Verb::stop:
         return stop();
      case Verb::fail:
         throw ConsumerBroke();
      default:
         change( deed );
         look();
      }
   }

   /// Only what is legal: an entry is replaced by another entity only after its removal. An idle
   /// stream refuses a policy map without counters when it is made, and passes over it otherwise.
   void change( const Deed & deed ) {
      const std::string policy = "policy " + std::to_string( deed.n % kPolicies );
      const std::string name = "class " + std::to_string( deed.n / kPolicies % kClasses );
      PolicyMapCounters * const map = tree_.policyMap( policy );
      const auto * const entry = map ? map->classCounters()[Lumo::String( name )] : nullptr;
      const bool hasCounters = entry && entry->value();
      switch ( deed.verb ) {
      case Verb::addClass:
         if ( !hasCounters ) { tree_.addClass( policy, name, ++packets_ ); }
         break;
      case Verb::addClassWithoutCounters:
         // While streaming, a machine that is there stays until its entry has gone.
         if ( !hasCounters || !streaming_ ) { tree_.addClassWithoutCounters( policy, name ); }
         break;
      case Verb::removeClass:
         tree_.removeClass( policy, name );
         break;
      case Verb::count:
         if ( !hasCounters ) { break; }
         if ( deed.n % 4 == 0 ) { // As it was: no change.
            tree_.count( policy, name, entry->value()->countData().packets() );
         } else {
            tree_.count( policy, name, ++packets_ );
            if ( streaming_ ) { changed( { policy, name } ); }
         }
         break;
      case Verb::addPolicy:
         if ( !map ) { tree_.addPolicy( policy ); }
         break;
      case Verb::addNullPolicy:
         if ( !tree_.root->policyMapCounters()[PolicyMapKey( policy )] ) { addNull( policy ); }
         break;
      case Verb::removePolicy:
         tree_.removePolicy( policy );
         break;
      default:
         break;
      }
   }

   void addNull( const std::string & policy ) {
      bool refused = false;
      try {
         tree_.root->policyMapCountersIs( PolicyMapKey( policy ), nullptr );
      } catch ( const Quon::NullPointerException & ) { refused = true; }
      require( refused == static_cast< bool >( mgr_.compressedKeyTableSm() ) );
   }

   void start( const Lumo::Ptr< Client > & client ) {
      const bool another = client != consumer_;
      if ( !streaming_ ) {
         client->forget();
         ++starts_;
         inHand_.clear();
         owed_ = promised_ = live_;
         arrivals_ += live_.size();
         novel_.clear();
         sinceStart_ = true;
      } else if ( another ) {
         Keys pending = owed_;
         pending.insert( inHand_.begin(), inHand_.end() );
         promised_.clear();
         std::set_intersection( pending.begin(), pending.end(), live_.begin(), live_.end(),
                                std::inserter( promised_, promised_.end() ) );
         sinceStart_ = false;
      }
      streaming_ = true;
      consumer_ = client;
      mgr_.startWatching( client );
      look();
   }

   void stop() {
      if ( streaming_ ) { passedOver_.merge( std::exchange( novel_, {} ) ); }
      streaming_ = false;
      mgr_.stopWatching();
      look();
   }

   void slice() {
      inHand_ = std::exchange( owed_, {} );
      passedOver_.clear();
      try {
         loop_.runOne();
      } catch ( const ConsumerBroke & ) {}
      owed_.merge( std::exchange( inHand_, {} ) );
      require( runs_.difference().empty() );
      checkPending();
   }

   void whim() {
      if ( whimsRest_ || calls_ == whims_.size() ) { return; }
      for ( const Deed & deed : whims_[calls_++] ) { perform( deed ); }
   }

   // The ledger
   // ------------------------------------------------------------------------------------

   std::uint64_t keyOf( const Name & name ) const {
      const auto * entry =
         mgr_.shortKeys()
            ->shortKey()[PbrCountersKey( PolicyMapKey( name.first ), name.second, {} )];
      return entry ? entry->value() : 0;
   }

   void changed( const Name & name ) {
      ++arrivals_;
      owed_.insert( keyOf( name ) );
      promised_.insert( keyOf( name ) );
   }

   /// Which classes came and went.
   void look() {
      const auto contents = tree_.contents();
      require( mgr_.shortKeys()->shortKey().size() == contents.size() );
      Keys now;
      const std::uint64_t last = lastKey_;
      for ( const auto & [name, packets] : contents ) {
         const std::uint64_t key = keyOf( name );
         require( key != 0 );
         now.insert( key );
         if ( const auto at = names_.find( key ); at != names_.end() ) {
            require( at->second == name && live_.contains( key ) );
            continue;
         }
         require( key > last );
         names_[key] = name;
         lastKey_ = std::max( lastKey_, key );
         if ( streaming_ ) {
            changed( name );
            novel_.insert( key );
         }
      }
      require( mgr_.shortKeys()->nextKey() == lastKey_ );
      for ( const std::uint64_t key : std::exchange( live_, now ) ) {
         if ( now.contains( key ) || !streaming_ ) { continue; }
         ++arrivals_;
         owed_.insert( key );
         promised_.erase( key );
      }
   }

   void delivered( Client & client, const PbrCounters & record, PbrCountersEncodingFlags flags ) {
      const std::uint64_t key = record.shortKey();
      require( &client == consumer_.get() );
      require( inHand_.erase( key ) == 1 );
      const Name name{ std::string( record.longKey().policyKey().name().view() ),
                       std::string( record.longKey().name().view() ) };
      require( names_.at( key ) == name );
      require( !client.gone.contains( key ) );
      require( flags.deleteKey() == record.deletedKey() );
      require( flags.deleteKey() == !record.data() );
      const bool novel = novel_.erase( key ) != 0;
      require( flags.encodeLongKey() == novel );
      require( !( novel && flags.deleteKey() ) );
      require( !( novel && client.told.contains( key ) ) );
      const unsigned starts = starts_;
      try {
         whim();
      } catch ( ... ) {
         if ( novel && starts == starts_ ) { novel_.insert( key ); }
         // It is pending again, unless there is something newer.
         if ( starts == starts_ && owed_.insert( key ).second && !record.deletedKey() ) {
            promised_.insert( key );
         }
         throw;
      }
   }

   /// What is pending is what is owed. A key that came and went before its first delivery is not.
   void checkPending() {
      Keys pending;
      for ( const auto & entry : mgr_.backlog()->backlog() ) { pending.insert( entry.fwkKey() ); }
      for ( const std::uint64_t key : Keys( owed_ ) ) {
         if ( pending.contains( key ) ) { continue; }
         require( !live_.contains( key ) );
         require( novel_.erase( key ) + passedOver_.count( key ) == 1 );
         owed_.erase( key );
      }
      require( pending == owed_ );
      require( mgr_.backlog()->account().isBalanced() );
      require( mgr_.backlog()->account().arrived == arrivals_ );
      Keys novel;
      for ( const auto & entry : mgr_.shortKeys()->novelKey() ) { novel.insert( entry.fwkKey() ); }
      require( novel == novel_ );
   }

   RunConformance runs_;
   Loop loop_;
   CountersTree tree_;
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared_ =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts_{ Lumo::makeNode< Keldb::EntityManager >(), shared_ };
   PbrPolicyCountersMgr mgr_{ &mounts_ };
   std::uint64_t packets_ = 0;

   const std::vector< Deeds > & whims_;
   std::size_t calls_ = 0;
   bool whimsRest_ = false;

   bool streaming_ = false;
   unsigned starts_ = 0;
   Lumo::Ptr< Client > consumer_;
   bool sinceStart_ = false; ///< It has been watching since streaming began.

   std::map< std::uint64_t, Name > names_; ///< What every short key has ever stood for.
   std::uint64_t lastKey_ = 0;
   Keys live_;                  ///< The classes that there are.
   std::uint64_t arrivals_ = 0; ///< Changes so far that a consumer was to be told.
   Keys owed_;       ///< Changed and not delivered since: pending, or arrived during the run.
   Keys inHand_;     ///< Taken by the run in progress and not delivered yet.
   Keys novel_;      ///< Their long key has not been told.
   Keys passedOver_; ///< No longer novel because a stop came during this run: before or after it
                     ///< passed over their deletion, which is not delivered in the first case.
   Keys promised_;   ///< What the consumer will know when nothing is pending.
};

} // namespace VeloSdkRpc::test
