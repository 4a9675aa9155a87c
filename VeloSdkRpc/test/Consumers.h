#pragma once

#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "VeloSdkRpc/PbrCountersBacklog.h"

namespace VeloSdkRpc::test {

/// A consumer that writes down everything, and can be told to misbehave.
class RecordingConsumer : public PbrCountersFrontend {
 public:
   struct Item {
      std::uint64_t shortKey;
      bool encodeLongKey;
      bool deleteKey;
      PbrCounters record;
   };

   void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) override {
      if ( beforeItem ) { beforeItem( record, flags ); }
      items.push_back( { record.shortKey(), flags.encodeLongKey(), flags.deleteKey(), record } );
   }
   void push() override {
      ++pushes;
      if ( onPush ) { onPush(); }
   }

   std::vector< std::uint64_t > keys() const {
      std::vector< std::uint64_t > all;
      for ( const Item & item : items ) { all.push_back( item.shortKey ); }
      return all;
   }

   std::vector< Item > items;
   int pushes = 0;

   /// Runs before an item is written down; may do anything, also throw.
   std::function< void( const PbrCounters &, PbrCountersEncodingFlags ) > beforeItem;
   std::function< void() > onPush;
};

/// What a `ThrowingConsumer` throws.
struct ConsumerBroke : std::runtime_error {
   ConsumerBroke() : std::runtime_error( "the consumer broke" ) {}
};

/// A consumer as the contract wants it: keeps the set of short keys that it was told, takes the
/// long key when it meets a short key for the first time, forgets deleted ones.
class ReconstructingConsumer : public PbrCountersFrontend {
 public:
   using Name = std::pair< std::string, std::string >;

   void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) override {
      const Name name{ std::string( record.longKey().policyKey().name().view() ),
                       std::string( record.longKey().name().view() ) };
      if ( flags.deleteKey() ) {
         told.erase( record.shortKey() );
         state.erase( record.shortKey() );
         return;
      }
      const auto [at, first] = told.emplace( record.shortKey(), name );
      if ( at->second != name ) { twoNamesForOneKey = true; }
      state[record.shortKey()] = record.data()->countData().packets();
   }
   void push() override { ++pushes; }

   /// Packets by policy map and class, as far as this consumer knows.
   std::map< Name, std::uint64_t > contents() const {
      std::map< Name, std::uint64_t > all;
      for ( const auto & [key, packets] : state ) { all[told.at( key )] = packets; }
      return all;
   }

   std::map< std::uint64_t, Name > told;
   std::map< std::uint64_t, std::uint64_t > state;
   bool twoNamesForOneKey = false;
   int pushes = 0;
};

} // namespace VeloSdkRpc::test
