#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "PolicyMap/PolicyMap.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/Loop.h"

/// The stream as it is measured: a tree of counters, a consumer, and the manager between them.
namespace bench {

using PolicyMap::Counters::CountData;
using PolicyMap::Counters::CountersData;
using PolicyMap::Counters::PolicyMapCounters;
using PolicyMap::Counters::PolicyMapKey;
using PolicyMap::Counters::PolicyMapTypeCounters;

/// Published counters, a hundred classes to a policy map, and a source that changes them.
class Tree {
 public:
   static constexpr std::size_t kClassesPerPolicyMap = 100;

   struct Class {
      PolicyMapCounters * policyMap;
      Lumo::Ptr< CountersData > counters;
   };

   explicit Tree( std::size_t classes ) {
      for ( std::size_t i = 0; i < classes; ++i ) {
         if ( i % kClassesPerPolicyMap == 0 ) { addPolicyMap(); }
         addClass();
      }
      // Neither the collections' order nor that of the heap.
      std::shuffle( classes_.begin(), classes_.end(), std::mt19937_64( 7 ) );
   }

   /// Every class once, in an order that stays the same and has nothing to do with any other.
   const std::vector< Class > & inRandomOrder() const { return classes_; }

   /// The next counts of any class: no two are the same.
   CountData nextCounts() {
      ++counted_;
      return CountData( counted_, 100 * counted_ );
   }

   const Lumo::Ptr< PolicyMapTypeCounters > root = Lumo::makeNode< PolicyMapTypeCounters >();

 private:
   void addPolicyMap() {
      const PolicyMapKey key( fmt::format( "policy-{:06}", root->policyMapCounters().size() ) );
      policyMap_ = Lumo::makeNode< PolicyMapCounters >( key );
      root->policyMapCountersIs( key, policyMap_ );
   }
   void addClass() {
      const Lumo::String name( fmt::format( "class-{:04}", policyMap_->classCounters().size() ) );
      const auto counters = Lumo::makeNode< CountersData >( name, nextCounts() );
      policyMap_->classCountersIs( name, counters );
      classes_.push_back( { policyMap_.get(), counters } );
   }

   std::vector< Class > classes_;
   Lumo::Ptr< PolicyMapCounters > policyMap_;
   std::uint64_t counted_ = 0;
};

/// A consumer that looks at every record and keeps none.
class CountingConsumer : public VeloSdkRpc::PbrCountersFrontend {
 public:
   void appendItem( const VeloSdkRpc::PbrCounters & record,
                    VeloSdkRpc::PbrCountersEncodingFlags flags ) override {
      ++records;
      keys += record.shortKey();
      novel += flags.encodeLongKey();
   }
   void push() override { ++pushes; }

   std::uint64_t records = 0;
   std::uint64_t keys = 0;
   std::uint64_t novel = 0;
   std::uint64_t pushes = 0;
};

/// A consumer during whose work one more class changes at every fourth record.
class BusyConsumer : public CountingConsumer {
 public:
   explicit BusyConsumer( Tree & tree ) : tree_( tree ) {}

   void appendItem( const VeloSdkRpc::PbrCounters & record,
                    VeloSdkRpc::PbrCountersEncodingFlags flags ) override {
      CountingConsumer::appendItem( record, flags );
      if ( records % 4 != 0 ) { return; }
      const auto & classes = tree_.inRandomOrder();
      classes[next_++ % classes.size()].counters->countDataIs( tree_.nextCounts() );
   }

 private:
   Tree & tree_;
   std::size_t next_ = 0;
};

/// The manager over a tree of its own, driven by a loop of its own.
class Stream {
 public:
   explicit Stream( std::size_t classes ) : tree( classes ) {
      shared_->entityIs( "policyMap/counters/pbr", tree.root );
   }

   /// The first scan: every class gets its short key.
   void mount() { mounts_.mountAll(); }
   void start() { mgr.startWatching( consumer ); }
   void stop() { mgr.stopWatching(); }
   /// To the last record.
   void drain() { loop.runUntilIdle(); }
   /// Changes every class once.
   void changeAll() {
      for ( const Tree::Class & one : tree.inRandomOrder() ) {
         one.counters->countDataIs( tree.nextCounts() );
      }
   }
   std::size_t pending() const { return mgr.backlog()->backlog().size(); }

   Tree tree;
   VeloSdkRpc::test::Loop loop;
   Lumo::Ptr< CountingConsumer > consumer = Lumo::makeNode< CountingConsumer >();

 private:
   const Lumo::Ptr< Keldb::EntityManager > entities_ = Lumo::makeNode< Keldb::EntityManager >();
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared_ =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts_{ entities_, shared_ };

 public:
   VeloSdkRpc::PbrPolicyCountersMgr mgr{ &mounts_ };
};

} // namespace bench
