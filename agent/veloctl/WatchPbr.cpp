#include "agent/veloctl/WatchPbr.h"

#include "agent/veloctl/Commands.h"
#include "agent/veloctl/PbrLines.h"
#include "agent/veloctl/PbrLive.h"
#include "agent/veloctl/PbrReader.h"
#include "agent/veloctl/Session.h"
#include "agent/veloctl/WatchLoop.h"
#include "agent/veloctl/WatchOptions.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

#include <memory>

namespace VeloCtl {

namespace {

using namespace velo::rpc::v1;

struct PbrOptions : WatchOptions {
   bool untilSync = false;
};

class WatchedPbr final : public Watched {
 public:
   WatchedPbr( PbrView & view, const PbrOptions & options )
      : view_( view ), reader_( view, options.count ), untilSync_( options.untilSync ) {}

   const PbrReader & reader() const { return reader_; }

   const PbrCountersWatchRequest & request() override {
      request_.set_resume_token( reader_.resumeToken() );
      return request_;
   }
   PbrCountersWatchResponse & response() override { return response_; }
   void take() override { reader_.take( response_ ); }
   bool enough() const override { return reader_.enough() || ( untilSync_ && reader_.inSync() ); }
   void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) override {
      view_.interrupted( why, retryIn );
   }
   void tick() override { view_.tick(); }

 private:
   PbrView & view_;
   PbrReader reader_;
   const bool untilSync_;
   PbrCountersWatchRequest request_;
   PbrCountersWatchResponse response_;
};

void watchPbr( Session & session, const PbrOptions & options ) {
   const StopRequest stop;
   Client & agent = session.agent();
   if ( !options.live( session ) ) {
      PbrLines lines( session );
      WatchedPbr watched( lines, options );
      return follow( agent, watched, stop, !options.noRetry );
   }
   PbrLive live( Screen( session.streams.out, terminalSize ), "PBR counters", options.interval,
                 std::chrono::steady_clock::now );
   WatchedPbr watched( live, options );
   live.readerIs( watched.reader() );
   follow( agent, watched, stop, !options.noRetry );
}

} // namespace

void addWatchPbr( Commands & watch ) {
   const auto options = std::make_shared< PbrOptions >();
   CLI::App & command =
      watch.add( "pbr", "The counters of policy-based routing",
                 [options]( Session & session ) { watchPbr( session, *options ); } );
   addWatchOptions( command, *options, "End after so many records" );
   command.add_flag( "--until-sync", options->untilSync, "End when the snapshot is complete" );
}

} // namespace VeloCtl
