#include "agent/stream/PbrStream.h"

#include "agent/stream/PbrRecord.h"

namespace VeloAgent {

using velo::rpc::v1::PbrCountersWatchResponse;

PbrStream::PbrStream( PbrFanout & fanout, WatchingClients & clients, const StreamOptions & options,
                      Oru::Clock & clock, Form form )
   : PbrFollower( fanout.keysOfNewClient( form == Form::alwaysLongKeys
                                             ? PbrClientKeys::KeepLongKeys::yes
                                             : PbrClientKeys::KeepLongKeys::no ) ),
     fanout_( fanout ),
     clients_( clients ),
     options_( options ),
     form_( form ),
     client_( clients.enter( *this ) ),
     call_( options, clock ),
     undo_( options.undoRecords ) {
   fanout_.followerIs( *this );
}

PbrStream::~PbrStream() {
   fanout_.followerDel( *this );
   clients_.leave( client_ );
}

void PbrStream::begin( PbrCall & call, bool reset ) {
   attach( call, reset ? Opening::reset : Opening::snapshot );
}

bool PbrStream::canResume( std::uint64_t sequence, Form form ) const {
   return form == form_ && undo_.reaches( sequence );
}

void PbrStream::resume( PbrCall & call, std::uint64_t sequence ) {
   if ( sequence < undo_.last() ) {
      undo_.undoBehind( sequence, [this]( const UndoLog::Told & told ) {
         keys_.untell( told.shortKey, told.first, told.gone );
      } );
      keys_.tellAgain();
      // For the next batch to find out.
      batchOfAll_ = knowsAll_ = false;
   }
   if ( inSyncAt_ > sequence ) { inSyncAt_ = 0; }
   attach( call, Opening::resumed );
}

void PbrStream::attach( PbrCall & call, Opening opening ) {
   call_.begin( call, *this );
   opening_ = opening;
   fanout_.wakeUp();
}

bool PbrStream::ready() const {
   return call_.writable() && ( opening_ != Opening::done || keys_.hasNews() || inSyncIsDue() );
}

void PbrStream::compose( Oru::Task & task ) {
   if ( opening_ != Opening::done ) {
      writeOpened();
   } else if ( inSyncIsDue() ) {
      call_.message().mutable_in_sync();
      write();
      inSyncAt_ = undo_.last();
   } else {
      writeBatch( task );
   }
}

void PbrStream::writeOpened() {
   using Opened = PbrCountersWatchResponse::Opened;
   const auto outcome = [this] {
      switch ( opening_ ) {
      case Opening::resumed:
         return Opened::OUTCOME_RESUMED;
      case Opening::reset:
         return Opened::OUTCOME_RESET;
      default:
         return Opened::OUTCOME_SNAPSHOT;
      }
   };
   call_.message().mutable_opened()->set_outcome( outcome() );
   opening_ = Opening::done;
   write();
}

/// A message is full, or the slice is over, or the batch ends. A batch without a record is not
/// worth a message, unless one that began earlier is to be ended.
void PbrStream::writeBatch( Oru::Task & task ) {
   auto & batch = *call_.message().mutable_batch();
   std::size_t records = 0;
   std::size_t names = 0;
   const bool begun = keys_.inBatch();
   if ( !begun ) { batchOfAll_ = fanout_.complete(); }
   const bool ends = keys_.tell( [&]( const PbrNews & news ) {
      names += append( batch, news );
      return ++records < options_.recordsPerMessage && names < options_.namesPerMessage &&
             !task.taskShouldYield();
   } );
   knowsAll_ = knowsAll_ || ( ends && batchOfAll_ );
   if ( records == 0 && !( begun && ends ) ) {
      call_.message().Clear();
      return;
   }
   batch.set_end_of_batch( ends );
   write( records );
}

/// Returns the bytes of the long key, if it has to be told.
std::size_t PbrStream::append( velo::rpc::v1::PbrCountersWatchResponse_Batch & batch,
                               const PbrNews & news ) {
   auto & record = *batch.add_records();
   record.set_short_key( news.shortKey );
   if ( news.longKey && ( news.first || form_ == Form::alwaysLongKeys ) ) {
      longKeyIs( record, *news.longKey );
   }
   if ( news.record ) {
      countersIs( record, *news.record );
   } else {
      record.set_deleted( true );
   }
   undo_.told( { .shortKey = news.shortKey, .first = news.first, .gone = !news.record } );
   return record.has_long_key() ? record.long_key().ByteSizeLong() : 0;
}

void PbrStream::write( std::size_t records ) {
   const std::uint64_t sequence = undo_.messageEnds( [this]( const UndoLog::Told & told ) {
      if ( told.gone ) { keys_.forget( told.shortKey ); }
   } );
   call_.message().set_resume_token( ResumeToken{ .stream = id_, .sequence = sequence }.bytes() );
   call_.write( records );
}

void PbrStream::writable() {
   call_.taken();
   if ( closing_ ) { closeIfTold(); }
   if ( ready() ) { fanout_.wakeUp(); }
}

void PbrStream::closeWhenTold() {
   closing_ = true;
   closeIfTold();
}

void PbrStream::closeIfTold() {
   if ( call_.writable() && !ready() && fanout_.allDelivered() ) { closeNow(); }
}

ClientReport PbrStream::report() const {
   const auto state = [this] {
      if ( awaySince() ) { return ClientState::away; }
      return inSyncAt_ ? ClientState::inSync : ClientState::snapshot;
   };
   ClientReport report;
   report.stream = ClientStream::pbrCounters;
   report.state = state();
   report.queue = keys_.pending();
   report.told = keys_.told();
   call_.reportTo( report );
   return report;
}

} // namespace VeloAgent
