#include "agent/veloctl/PbrReader.h"

#include "agent/veloctl/Failures.h"
#include "agent/veloctl/MessageJson.h"
#include "velo/rpc/v1/pbr_counters.pb.h"

#include <fmt/format.h>
#include <utility>

namespace VeloCtl {

using velo::rpc::v1::PbrCountersRecord;
using velo::rpc::v1::PbrCountersWatchResponse;

void PbrReader::take( const PbrCountersWatchResponse & message ) {
   switch ( message.event_case() ) {
   case PbrCountersWatchResponse::kOpened:
      takeOpened( message.opened().outcome() );
      break;
   case PbrCountersWatchResponse::kBatch:
      for ( const PbrCountersRecord & record : message.batch().records() ) {
         if ( enough() ) { return; }
         takeRecord( record );
      }
      if ( message.batch().end_of_batch() ) { view_.push( std::exchange( recordsInBatch_, 0 ) ); }
      break;
   case PbrCountersWatchResponse::kInSync:
      inSync_ = true;
      view_.inSync();
      break;
   case PbrCountersWatchResponse::EVENT_NOT_SET:
      break; // of a later agent
   }
   if ( !message.resume_token().empty() ) { resumeToken_ = message.resume_token(); }
}

void PbrReader::takeOpened( int outcome ) {
   if ( outcome != PbrCountersWatchResponse::Opened::OUTCOME_RESUMED ) {
      classes_.clear();
      inSync_ = false;
   }
   recordsInBatch_ = 0;
   view_.opened( wordOf( *PbrCountersWatchResponse::Opened::Outcome_descriptor(), outcome ) );
}

void PbrReader::takeRecord( const PbrCountersRecord & record ) {
   const auto [known, isNew] = classes_.try_emplace( record.short_key() );
   KnownClass & its = known->second;
   if ( record.has_long_key() ) {
      its.policy = record.long_key().policy();
      its.className = record.long_key().class_name();
      its.aclRule = record.long_key().acl_rule();
   } else if ( isNew ) {
      classes_.erase( known );
      throw Failure( ExitCode::refused,
                     fmt::format( "the agent uses short key {} and has never said what it stands "
                                  "for",
                                  record.short_key() ) );
   }
   its.counters.reset();
   if ( record.has_counters() ) {
      its.counters = { record.counters().packets(), record.counters().bytes() };
   }
   ++records_;
   ++recordsInBatch_;
   view_.record( { .shortKey = record.short_key(),
                   .encodeLongKey = record.has_long_key(),
                   .deleteKey = record.deleted(),
                   .policy = its.policy,
                   .className = its.className,
                   .aclRule = its.aclRule,
                   .longKeyIsNews = true,
                   .counters = its.counters,
                   .deleted = record.deleted() } );
   if ( record.deleted() ) { classes_.erase( known ); }
}

} // namespace VeloCtl
