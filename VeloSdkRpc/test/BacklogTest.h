#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/Loop.h"
#include "VeloSdkRpc/test/RunsConform.h"

namespace VeloSdkRpc::test {

/// Hears every change of a backlog, and can be told to do something about it.
class Listener : public Lumo::Node {
 public:
   explicit Listener( const Lumo::Ptr< PbrCountersBacklog > & backlog ) {
      backlog->publisher()->subscriberAdd( slot_ );
   }

   std::vector< std::uint64_t > changed;
   std::function< void( std::uint64_t ) > react;

 private:
   void heard( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void * key,
               const void * ) {
      if ( attributeId != PbrCountersBacklog::kBacklog ) { return; }
      changed.push_back( *static_cast< const std::uint64_t * >( key ) );
      if ( react ) { react( changed.back() ); }
   }

   Lumo::MemberSubscriber< Listener, &Listener::heard > slot_{ this };
};

/// A backlog with its table, a consumer that need not watch, and a loop.
class BacklogTest : public testing::Test {
 protected:
   static PbrCounters::Data counters( std::uint64_t packets = 1 ) {
      using namespace PolicyMap::Counters;
      return Lumo::makeNode< CountersData >( "c", CountData( packets, packets ) );
   }
   static PbrCountersKey longKey( std::uint64_t shortKey ) {
      return PbrCountersKey( PolicyMap::Counters::PolicyMapKey( "p" ), std::to_string( shortKey ),
                             {} );
   }
   static PbrCounters update( std::uint64_t shortKey, const PbrCounters::Data & data ) {
      return PbrCounters( shortKey, longKey( shortKey ), data, false );
   }
   static PbrCounters update( std::uint64_t shortKey ) { return update( shortKey, counters() ); }
   static PbrCounters deletion( std::uint64_t shortKey ) {
      return PbrCounters( shortKey, longKey( shortKey ), nullptr, true );
   }

   void file( std::initializer_list< std::uint64_t > shortKeys ) {
      for ( const std::uint64_t key : shortKeys ) { backlog->backlogIs( update( key ) ); }
   }
   /// All pending short keys in the collection's own order.
   std::vector< std::uint64_t > pending() const {
      std::vector< std::uint64_t > all;
      for ( const auto & entry : backlog->backlog() ) { all.push_back( entry.fwkKey() ); }
      return all;
   }
   void watch() { backlog->frontendIs( consumer ); }

   const RunsConform runsConform;
   Loop loop;
   const Lumo::Ptr< PbrCountersKeyCompressionTable > table = PbrCountersKeyCompressionTableIs();
   Lumo::Ptr< PbrCountersBacklog > backlog = PbrCountersBacklogIs( table );
   const Lumo::Ptr< RecordingConsumer > consumer = Lumo::makeNode< RecordingConsumer >();
};

} // namespace VeloSdkRpc::test
