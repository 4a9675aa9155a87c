/// A program outside this project: publishes two classes, lets the stream run, and checks what it
/// hears. Prints nothing when all is well.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "VeloSdkRpc/BgpLinkWeightMgr.h"
#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/SdkErrors.h"

namespace {

using namespace PolicyMap::Counters;

void require( bool holds, const char * what ) {
   if ( holds ) { return; }
   std::fprintf( stderr, "not so: %s\n", what );
   std::exit( 1 );
}

/// Keeps the packets of every class it was told of.
class Consumer final : public VeloSdkRpc::PbrCountersFrontend {
 public:
   void appendItem( const VeloSdkRpc::PbrCounters & record,
                    VeloSdkRpc::PbrCountersEncodingFlags flags ) override {
      const std::string name( record.longKey().name().view() );
      if ( flags.deleteKey() ) {
         packets.erase( name );
      } else {
         packets[name] = record.data()->countData().packets();
      }
   }
   void push() override { ++batches; }

   std::map< std::string, std::uint64_t > packets;
   int batches = 0;
};

Lumo::Ptr< CountersData > publish( PolicyMapCounters & policy, const Lumo::String & name ) {
   const auto counters = Lumo::makeNode< CountersData >( name );
   policy.classCountersIs( name, counters );
   return counters;
}

/// The error is thrown inside the library and caught outside of it.
bool misuseIsCaught( VeloSdkRpc::bgp_link_weight_mgr & weights ) {
   try {
      weights.link_weight_resync_complete();
   } catch ( const velo::configuration_error & ) { return true; }
   return false;
}

} // namespace

int main() {
   const auto scheduler = Lumo::makeNode< Oru::TaskScheduler >();
   Oru::TaskSchedulerRoot::schedulerIs( scheduler );
   {
      const auto root = Lumo::makeNode< PolicyMapTypeCounters >();
      const PolicyMapKey key( "edge" );
      const auto policy = Lumo::makeNode< PolicyMapCounters >( key );
      root->policyMapCountersIs( key, policy );
      const auto web = publish( *policy, "web" );
      publish( *policy, "mail" );

      const auto shared = Lumo::makeNode< QuonSharedMem::EntityManager >();
      shared->entityIs( "policyMap/counters/pbr", root );
      velo::mount_mgr mounts( Lumo::makeNode< Keldb::EntityManager >(), shared );
      VeloSdkRpc::PbrPolicyCountersMgr mgr( &mounts );
      VeloSdkRpc::bgp_link_weight_mgr weights( &mounts );
      mounts.mountAll();

      const auto consumer = Lumo::makeNode< Consumer >();
      mgr.startWatching( consumer );
      scheduler->runUntilIdle();
      require( consumer->packets.size() == 2, "both classes are told" );

      web->countDataIs( CountData( 7, 700 ) );
      policy->classCountersDel( "mail" );
      scheduler->runUntilIdle();
      require( consumer->packets == std::map< std::string, std::uint64_t >{ { "web", 7 } },
               "the newest count is told, and which class is gone" );
      require( consumer->batches > 0, "batches end" );
      require( misuseIsCaught( weights ), "misuse is an error that can be caught" );
   }
   Oru::TaskSchedulerRoot::schedulerIs( nullptr );
}
