/// Everything between a tree of counters and the clients that watch it, without a server and with
/// time standing still.

#pragma once

#include "Oru/FakeClock.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"
#include "agent/stream/PbrStreams.h"
#include "agent/test/StreamClient.h"

#include <chrono>
#include <memory>
#include <vector>

namespace VeloAgent::test {

class StreamWorld {
 public:
   explicit StreamWorld( const StreamOptions & given = {} ) : options( given ) {
      shared_->entityIs( "policyMap/counters/pbr", tree.root );
      mounts_.mountAll();
      mgr.startWatching( fanout );
   }

   /// The loop runs until nothing is left to do, while `takers` take what they are sent.
   void settle( const std::vector< StreamClient * > & takers = {} ) {
      bool moved = true;
      while ( moved ) {
         moved = loop.runUntilIdle() > 0;
         for ( StreamClient * const client : takers ) { moved = client->takes() || moved; }
      }
   }
   void settle( StreamClient & client ) { settle( std::vector{ &client } ); }

   void passes( std::chrono::nanoseconds time ) {
      clock.advance( time );
      streams.tick();
   }

   std::uint64_t shortKey( const std::string & policy, const std::string & name ) const {
      using VeloSdkRpc::PbrCountersKey;
      const PbrCountersKey key( PolicyMap::Counters::PolicyMapKey( policy ), name, {} );
      return mgr.shortKeys()->shortKey()[key]->value();
   }

   const StreamOptions options;
   VeloSdkRpc::test::Loop loop;
   VeloSdkRpc::test::CountersTree tree;
   Oru::FakeClock clock;

 private:
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared_ =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts_{ Lumo::makeNode< Keldb::EntityManager >(), shared_ };

 public:
   VeloSdkRpc::PbrPolicyCountersMgr mgr{ &mounts_ };
   const Lumo::Ptr< PbrFanout > fanout = Lumo::makeNode< PbrFanout >( loop.scheduler(), mgr );
   WatchingClients clients;
   PbrStreams streams{ *fanout, clients, options, clock };
};

} // namespace VeloAgent::test
