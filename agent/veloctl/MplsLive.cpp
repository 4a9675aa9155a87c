#include "agent/veloctl/MplsLive.h"

#include "agent/Printable.h"
#include "agent/veloctl/Table.h"

#include <fmt/format.h>
#include <utility>

namespace VeloCtl {

namespace {

/// More than any screen has rows.
constexpr std::size_t kMostShown = 500;

} // namespace

MplsLive::MplsLive( Screen screen, std::chrono::milliseconds interval, std::function< Time() > now )
   : screen_( std::move( screen ) ),
     interval_( interval ),
     now_( std::move( now ) ),
     drawnAt_( now_() ) {}

void MplsLive::state( const std::string & what ) {
   state_ = what;
   draw( now_() );
}

void MplsLive::route( const velo::rpc::v1::MplsProgrammedRoute & route ) {
   ++all_;
   latest_.push_front( route );
   if ( latest_.size() > kMostShown ) { latest_.pop_back(); }
}

void MplsLive::tick() {
   const Time at = now_();
   if ( at - drawnAt_ >= interval_ ) { draw( at ); }
}

void MplsLive::draw( Time at ) {
   const double seconds =
      std::chrono::duration< double >( at - std::exchange( drawnAt_, at ) ).count();
   const auto since = static_cast< double >( all_ - std::exchange( drawn_, all_ ) );

   Table table{ ">LABEL", ">GROUP", "NAME", ">FEC", ">ROUTE VERSION", ">GROUP VERSION", ">ACK" };
   const auto number = []( std::uint64_t n ) { return fmt::format( "{}", n ); };
   for ( const auto & route : latest_ ) {
      table.row( { number( route.label() ), number( route.nexthop_group_id() ),
                   VeloAgent::printable( route.nexthop_group_name() ), number( route.fec_id() ),
                   number( route.route_version() ), number( route.nexthop_group_version() ),
                   number( route.ack() ) } );
   }
   std::vector< std::string > lines = {
      "MPLS routes: " + state_,
      fmt::format( "{} routes, {:.0f} routes/s", all_, seconds <= 0 ? 0.0 : since / seconds ) };
   for ( std::string & line : table.lines() ) { lines.push_back( std::move( line ) ); }
   screen_.show( lines );
}

} // namespace VeloCtl
