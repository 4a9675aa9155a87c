#include "agent/veloctl/Replay.h"

#include "agent/veloctl/Client.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/Failures.h"
#include "agent/veloctl/Progress.h"
#include "agent/veloctl/Recording.h"
#include "agent/veloctl/Session.h"

#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <thread>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

struct ReplayArguments {
   std::string file;
   std::optional< double > speed = 1;
};

std::optional< double > speedFrom( const std::string & given ) {
   if ( given == "max" ) { return std::nullopt; }
   char * end = nullptr;
   const double speed = std::strtod( given.c_str(), &end );
   if ( given.empty() || *end != '\0' || !std::isfinite( speed ) || speed <= 0 ) {
      throw WrongUse( fmt::format( "--speed: \"{}\" is not a number above 0 (2: twice as fast) or "
                                   "max",
                                   given ) );
   }
   return speed;
}

void publish( Client & agent, const RecordingEntry & entry ) {
   switch ( entry.entry_case() ) {
   case RecordingEntry::kPbrCounters:
      agent.call< PublishPbrCountersResponse >( entry.pbr_counters() );
      break;
   case RecordingEntry::kMplsRoutes:
      agent.call< PublishMplsRoutesResponse >( entry.mpls_routes() );
      break;
   case RecordingEntry::kNexthopGroups:
      agent.call< PublishNexthopGroupsResponse >( entry.nexthop_groups() );
      break;
   case RecordingEntry::kHeader:
   case RecordingEntry::ENTRY_NOT_SET:
      break; // the reader lets no such pass
   }
}

void replay( Session & session, const ReplayArguments & arguments ) {
   // All of it is read first: of a file that is damaged nothing is replayed.
   const RecordingExtent extent = extentOf( arguments.file );
   Recording recording( arguments.file );
   Progress progress( session.streams, "replayed", extent.entries );
   std::uint64_t done = 0;
   const auto begin = std::chrono::steady_clock::now();
   for ( RecordingEntry entry; recording.next( entry ); ) {
      std::this_thread::sleep_until( begin + dueAt( entry.at_us(), arguments.speed ) );
      publish( session.agent(), entry );
      progress.doneIs( ++done );
   }
   session.line( session.json() ? fmt::format( R"({{"replayed":{}}})", done )
                                : fmt::format( "{} batches replayed", done ) );
}

} // namespace

std::chrono::microseconds dueAt( std::uint64_t atUs, std::optional< double > speed ) {
   // Further away than anybody waits.
   constexpr double kMost = 1e15;
   if ( !speed ) { return std::chrono::microseconds( 0 ); }
   return std::chrono::microseconds(
      std::llround( std::min( static_cast< double >( atUs ) / *speed, kMost ) ) );
}

void addReplay( Commands & commands ) {
   const auto arguments = std::make_shared< ReplayArguments >();
   CLI::App & command =
      commands.add( "replay", "Publish again what velo-agent --record FILE has recorded",
                    [arguments]( Session & session ) { replay( session, *arguments ); } );
   command.add_option( "FILE", arguments->file, "The recording" )->type_name( "" )->required();
   command
      .add_option_function< std::string >(
         "--speed",
         [arguments]( const std::string & given ) { arguments->speed = speedFrom( given ); },
         "So many times as fast as it was recorded; max: without waiting (1)" )
      ->type_name( "X" );
}

} // namespace VeloCtl
