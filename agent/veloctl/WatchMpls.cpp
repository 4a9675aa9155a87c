#include "agent/veloctl/WatchMpls.h"

#include "agent/JsonText.h"
#include "agent/Printable.h"
#include "agent/veloctl/Commands.h"
#include "agent/veloctl/MessageJson.h"
#include "agent/veloctl/MplsLive.h"
#include "agent/veloctl/PbrLines.h"
#include "agent/veloctl/Session.h"
#include "agent/veloctl/WatchLoop.h"
#include "agent/veloctl/WatchOptions.h"
#include "velo/rpc/v1/mpls_route_programming.pb.h"

#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;
using Json = nlohmann::ordered_json;

std::string lineOf( Format format, const MplsProgrammedRoute & route ) {
   if ( format == Format::json ) {
      Json line = { { "event", "route" } };
      line.update( jsonOf( route ) );
      return VeloAgent::lineOf( line );
   }
   return fmt::format(
      "{} -> group {} {} (fec {}): version {} of the route, {} of the group, ack {}", route.label(),
      route.nexthop_group_id(), VeloAgent::printable( route.nexthop_group_name(), '!' ),
      route.fec_id(), route.route_version(), route.nexthop_group_version(), route.ack() );
}

class WatchedMpls final : public Watched {
 public:
   /// Shows everything to `live`, or else as lines.
   WatchedMpls( Session & session, MplsLive * live, std::uint64_t mostRoutes )
      : session_( session ), live_( live ), mostRoutes_( mostRoutes ) {}

   const MplsRouteProgrammingWatchRequest & request() override { return request_; }
   MplsRouteProgrammingWatchResponse & response() override { return response_; }
   bool enough() const override { return routes_ >= mostRoutes_; }

   void take() override {
      if ( response_.has_opened() ) { opened(); }
      for ( const MplsProgrammedRoute & route : response_.batch().routes() ) {
         if ( enough() ) { return; }
         ++routes_;
         if ( live_ ) {
            live_->route( route );
         } else {
            session_.line( lineOf( session_.format, route ) );
         }
      }
   }

   void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) override {
      const std::string line = interruptionLine( session_.format, why, retryIn );
      if ( live_ ) { return live_->state( line ); }
      session_.line( line );
      session_.streams.out.flush();
   }

   void tick() override {
      if ( live_ ) { return live_->tick(); }
      session_.streams.out.flush();
   }

 private:
   void opened() {
      if ( live_ ) { return live_->state( "watching" ); }
      session_.line( session_.json() ? R"({"event":"opened"})" : "-- opened" );
   }

   Session & session_;
   MplsLive * const live_;
   const std::uint64_t mostRoutes_;
   std::uint64_t routes_ = 0;
   const MplsRouteProgrammingWatchRequest request_;
   MplsRouteProgrammingWatchResponse response_;
};

void watchMpls( Session & session, const WatchOptions & options ) {
   const StopRequest stop;
   std::unique_ptr< MplsLive > live;
   if ( options.live( session ) ) {
      live = std::make_unique< MplsLive >( Screen( session.streams.out, terminalSize ),
                                           options.interval, std::chrono::steady_clock::now );
   }
   WatchedMpls watched( session, live.get(), options.count );
   follow( session.agent(), watched, stop, !options.noRetry );
}

} // namespace

void addWatchMpls( Commands & watch ) {
   const auto options = std::make_shared< WatchOptions >();
   CLI::App & command =
      watch.add( "mpls", "MPLS routes that the hardware acknowledges from now on",
                 [options]( Session & session ) { watchMpls( session, *options ); } );
   addWatchOptions( command, *options, "End after so many routes" );
}

} // namespace VeloCtl
