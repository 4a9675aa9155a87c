#pragma once

#include <cstdint>
#include <utility>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "Stream.h"

/// What somebody would write by hand who needs this one job and nothing else.
namespace bench {

/// The update event and the drain as one plain class over the best containers to be had: no
/// publishers, no machines, no scheduler, no interruption; nothing may happen while it drains. It
/// does what can be observed: every class has a short key by its long key, at most one record per
/// short key is pending, and a virtual consumer is handed every record with its flags.
class Reference {
 public:
   using Record = VeloSdkRpc::PbrCounters;

   /// The counters of `name` in `policy` changed: its record is pending afterwards.
   void changed( const PolicyMapKey & policy, const CountersData & counters ) {
      const auto known = shortKeys_.find( Probe{ policy, counters.name() } );
      const std::uint64_t shortKey =
         known != shortKeys_.end() ? known->second : newShortKey( policy, counters.name() );
      const auto at = pending_.find( shortKey );
      if ( at == pending_.end() ) {
         pending_.emplace( shortKey, record( shortKey, policy, counters ) );
         scheduled_ = true;
      } else if ( at->second.deletedKey() || at->second.data().get() != &counters ) {
         at->second = record( shortKey, policy, counters );
         scheduled_ = true;
      }
   }

   /// Hands over all that is pending. The tables keep their memory for the next time.
   void drain( VeloSdkRpc::PbrCountersFrontend & consumer ) {
      if ( !std::exchange( scheduled_, false ) ) { return; }
      for ( const auto & [shortKey, record] : pending_ ) {
         VeloSdkRpc::PbrCountersEncodingFlags flags;
         flags.encodeLongKeyIs( novel_.erase( shortKey ) != 0 );
         flags.deleteKeyIs( record.deletedKey() );
         if ( !flags.encodeLongKey() || !flags.deleteKey() ) {
            consumer.appendItem( record, flags );
         }
      }
      pending_.clear();
      consumer.push();
   }

   /// From here on nothing that is known is new to the consumer.
   void forgetNovelty() { novel_.clear(); }

   std::size_t pending() const { return pending_.size(); }

 private:
   struct LongKey {
      PolicyMapKey policy;
      Lumo::String name;
      Lumo::String aclRule;
   };
   struct Probe {
      const PolicyMapKey & policy;
      const Lumo::String & name;
   };
   struct Hash {
      using is_avalanching = void;
      using is_transparent = void;
      std::size_t operator()( const auto & key ) const {
         return Lumo::Impl::foldedMultiply( key.policy.name().hash() ^ 0x9e3779b97f4a7c15,
                                            key.name.hash() ^ 0xd6e8feb86659fd93 );
      }
   };
   struct Same {
      using is_transparent = void;
      bool operator()( const auto & a, const auto & b ) const {
         return a.name == b.name && a.policy == b.policy;
      }
   };
   struct NumberHash {
      using is_avalanching = void;
      std::size_t operator()( std::uint64_t key ) const { return Quon::mix64( key ); }
   };

   std::uint64_t newShortKey( const PolicyMapKey & policy, const Lumo::String & name ) {
      shortKeys_.emplace( LongKey{ policy, name, {} }, ++nextKey_ );
      novel_.insert( nextKey_ );
      return nextKey_;
   }
   static Record record( std::uint64_t shortKey, const PolicyMapKey & policy,
                         const CountersData & counters ) {
      return Record( shortKey, VeloSdkRpc::PbrCountersKey( policy, counters.name(), {} ),
                     Record::Data( &counters ), false );
   }

   boost::unordered_flat_map< LongKey, std::uint64_t, Hash, Same > shortKeys_;
   boost::unordered_flat_map< std::uint64_t, Record, NumberHash > pending_;
   boost::unordered_flat_set< std::uint64_t, NumberHash > novel_;
   std::uint64_t nextKey_ = 0;
   bool scheduled_ = false;
};

/// The reference at work on a tree of its own, of the same shape and in the same order of changes.
class ReferenceStream {
 public:
   explicit ReferenceStream( std::size_t classes ) : tree( classes ) {}

   void changeAll() {
      for ( const Tree::Class & one : tree.inRandomOrder() ) {
         one.counters->countDataIs( tree.nextCounts() );
         reference.changed( one.policyMap->key(), *one.counters );
      }
   }
   void drain() { reference.drain( *consumer ); }

   Tree tree;
   Reference reference;
   const Lumo::Ptr< CountingConsumer > consumer = Lumo::makeNode< CountingConsumer >();
};

} // namespace bench
