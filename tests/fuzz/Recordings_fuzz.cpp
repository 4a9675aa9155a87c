// Recordings, as veloctl reads them and as the agent takes what is in them: into the state of the
// switch, watched by everything that the library has.

#include <string>
#include <variant>

#include <velo/rpc/v1/recording.pb.h>

#include "VeloSdkRpc/test/Loop.h"
#include "agent/Managers.h"
#include "agent/TreeWriter.h"
#include "agent/rpc/BadRequest.h"
#include "agent/rpc/MplsConversion.h"
#include "agent/rpc/PbrCountersConversion.h"
#include "agent/stream/PbrFanout.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Recording.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/MemoryFile.h"

namespace Fuzz::Recordings {
namespace {

using namespace VeloAgent;
using velo::rpc::v1::RecordingEntry;

/// The south side of an agent, with somebody who watches all of it.
class Switch {
 public:
   Switch() {
      managers_.mount();
      managers_.pbrCounters().startWatching( fanout_ );
      managers_.mplsRoutes().startWatching( []( const Mpls::Hardware::Route & route ) {
         require( route.ackInfo().hasValue(), "a route that is told is acknowledged" );
      } );
   }

   void take( const RecordingEntry & entry ) {
      switch ( entry.entry_case() ) {
      case RecordingEntry::kPbrCounters:
         writer_->apply( changesFrom( entry.pbr_counters() ), [] {} );
         break;
      case RecordingEntry::kMplsRoutes:
         for ( const MplsRouteChange & each : changesFrom( entry.mpls_routes() ) ) {
            std::visit( [this]( const auto & change ) { this->apply( change ); }, each );
         }
         break;
      case RecordingEntry::kNexthopGroups:
         for ( const NexthopGroupChange & each : changesFrom( entry.nexthop_groups() ) ) {
            apply( each );
         }
         break;
      default:
         require( false, "the reader lets only batches pass" );
      }
      loop_.runUntilIdle();
   }

 private:
   void apply( const Mpls::Hardware::Route & route ) {
      managers_.mplsStatus().routeIs( route.key(), route );
   }
   void apply( const Mpls::RouteKey & gone ) { managers_.mplsStatus().routeDel( gone ); }
   void apply( const NexthopGroupChange & change ) {
      if ( change.name ) {
         managers_.nexthopGroups().nexthopGroupNameIs( change.id, *change.name );
      } else {
         managers_.nexthopGroups().nexthopGroupNameDel( change.id );
      }
   }

   VeloSdkRpc::test::Loop loop_;
   const Lumo::Ptr< TreeWriter::Root > root_ = Lumo::makeNode< TreeWriter::Root >();
   Managers managers_{ root_ };
   const Lumo::Ptr< PbrFanout > fanout_ =
      Lumo::makeNode< PbrFanout >( loop_.scheduler(), managers_.pbrCounters() );
   const Lumo::Ptr< TreeWriter > writer_ =
      Lumo::makeNode< TreeWriter >( loop_.scheduler(), root_, []( const std::string & why ) {
         require( false, "what is accepted can be applied: " + why );
      } );
};

void run( std::string_view bytes ) {
   static MemoryFile file;
   file.contentsAre( bytes );
   try {
      VeloCtl::Recording recording( file.path() );
      Switch itsSwitch;
      std::uint64_t before = 0;
      for ( RecordingEntry entry; recording.next( entry ); ) {
         require( entry.at_us() >= before, "entries are in order" );
         before = entry.at_us();
         try {
            itsSwitch.take( entry );
         } catch ( const BadRequest & ) {} // The agent would refuse it, and go on.
      }
   } catch ( const VeloCtl::WrongUse & error ) {
      const std::string_view what = error.what();
      require( what.find( '\n' ) == what.npos, "a refusal is one line" );
   }
}

const Target target( "Recordings", run );

} // namespace
} // namespace Fuzz::Recordings
