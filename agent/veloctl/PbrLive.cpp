#include "agent/veloctl/PbrLive.h"

#include "agent/Printable.h"
#include "agent/veloctl/Table.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace VeloCtl {

using VeloAgent::Counters;
using VeloAgent::printable;

struct PbrLive::Row {
   std::uint64_t shortKey;
   const KnownClass * its;
   Counters counters;
   double packetRate;
   double byteRate;

   /// The busiest first; what is idle in the order of its appearance.
   bool operator<( const Row & other ) const {
      return packetRate != other.packetRate ? packetRate > other.packetRate
                                            : shortKey < other.shortKey;
   }
};

PbrLive::PbrLive( Screen screen, std::string title, std::chrono::milliseconds interval,
                  std::function< Time() > now )
   : screen_( std::move( screen ) ),
     title_( std::move( title ) ),
     interval_( interval ),
     now_( std::move( now ) ),
     drawnAt_( now_() ) {}

void PbrLive::opened( const std::string & outcome ) {
   if ( outcome != "resumed" ) { counted_.clear(); }
   state_ = outcome == "resumed" ? "resumed" : "taking the snapshot";
}

void PbrLive::record( const VeloAgent::DeliveredRecord & record ) {
   ++records_;
   if ( record.deleted ) { counted_.erase( record.shortKey ); }
}

void PbrLive::interrupted( const std::string & why, std::chrono::milliseconds retryIn ) {
   state_ = fmt::format( "{}; trying again in {} ms", printable( why ), retryIn.count() );
   draw( now_() );
}

void PbrLive::tick() {
   const Time at = now_();
   if ( at - drawnAt_ >= interval_ ) { draw( at ); }
}

std::vector< PbrLive::Row > PbrLive::rowsAfter( double seconds ) {
   std::vector< Row > rows;
   rows.reserve( reader_->classes().size() );
   for ( const auto & [shortKey, its] : reader_->classes() ) {
      const Counters now = its.counters.value_or( Counters() );
      const auto [before, isNew] = counted_.try_emplace( shortKey, now );
      // Counters that were cleared begin anew.
      const auto rate = [seconds]( std::uint64_t more, std::uint64_t less ) {
         return more < less || seconds <= 0 ? 0.0 : static_cast< double >( more - less ) / seconds;
      };
      rows.push_back( { shortKey, &its, now, rate( now.packets, before->second.packets ),
                        rate( now.bytes, before->second.bytes ) } );
      before->second = now;
   }
   return rows;
}

void PbrLive::draw( Time at ) {
   const double seconds =
      std::chrono::duration< double >( at - std::exchange( drawnAt_, at ) ).count();
   std::vector< Row > rows = rowsAfter( seconds );
   const std::size_t room = screen_.size().rows;
   const std::size_t shown = std::min( rows.size(), room > 4 ? room - 4 : 1 );
   const auto end = rows.begin() + static_cast< std::ptrdiff_t >( shown );
   std::partial_sort( rows.begin(), end, rows.end() );

   Table table{ ">KEY", "POLICY", "CLASS", "RULE", ">PACKETS", ">BYTES", ">PACKETS/S", ">BYTES/S" };
   for ( auto row = rows.begin(); row != end; ++row ) {
      table.row(
         { fmt::format( "{}", row->shortKey ), printable( row->its->policy ),
           printable( row->its->className ), printable( row->its->aclRule ),
           fmt::format( "{}", row->counters.packets ), fmt::format( "{}", row->counters.bytes ),
           fmt::format( "{:.0f}", row->packetRate ), fmt::format( "{:.0f}", row->byteRate ) } );
   }
   std::vector< std::string > lines = {
      fmt::format( "{}: {}", title_, state_ ),
      fmt::format(
         "{} classes, {:.0f} records/s", rows.size(),
         seconds <= 0 ? 0.0 : static_cast< double >( std::exchange( records_, 0 ) ) / seconds ) };
   for ( std::string & line : table.lines() ) { lines.push_back( std::move( line ) ); }
   screen_.show( lines );
}

} // namespace VeloCtl
