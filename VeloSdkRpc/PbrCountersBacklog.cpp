#include "VeloSdkRpc/PbrCountersBacklog.h"

#include "VeloSdkRpc/detail/RunWitness.h"
#include "VeloSdkRpc/detail/ShortKeyMemo.h"

namespace VeloSdkRpc {
namespace {

const Quon::TraceHandle & trace() {
   static const Quon::TraceHandle handle( "PbrCountersBacklog", true );
   return handle;
}

} // namespace

PbrCountersBacklog::PbrCountersBacklog(
   const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys )
   : shortKeys_( shortKeys ) {}

PbrCountersBacklog::~PbrCountersBacklog() = default;

const Quon::TypeData & PbrCountersBacklog::typeData() const {
   static constexpr std::string_view kAttributes[] = { "shortKeys", "frontend", "backlog",
                                                       "bookmark" };
   static constexpr Quon::TypeData kType{ "VeloSdkRpc::PbrCountersBacklog", kAttributes };
   return kType;
}

void PbrCountersBacklog::frontendIs( const Lumo::Ptr< PbrCountersFrontend > & frontend ) {
   const Lumo::Ptr< PbrCountersFrontend > now = frontend; // It may be our own, or go meanwhile.
   const Lumo::Ptr< PbrCountersFrontend > old = std::exchange( frontend_, now );
   publisher()->publishChangeRecursive( kFrontend, nullptr, &old, old == now, &now );
}

void PbrCountersBacklog::backlogIs( const PbrCounters & c ) {
   const std::uint64_t key = c.shortKey();
   const auto [entry, inserted] = backlog_.newMember( key, c );
   ++account_.arrived;
   if ( inserted ) {
      publisher()->publishChangeRecursive( kBacklog, &key, nullptr, false, &c );
      return;
   }
   ++account_.coalesced;
   if ( entry->value() != c ) {
      const PbrCounters old = entry->value();
      ++withdrawals_;
      backlog_.update( key, c );
      publisher()->publishChangeRecursive( kBacklog, &key, &old, false, &c );
   }
}

void PbrCountersBacklog::backlogIs( detail::ShortKeyMemo & memo,
                                    const PbrCountersKeyProbe & longKey,
                                    const PbrCounters::Data & counters ) {
   const std::uint64_t key = memo.shortKey();
   const auto record = [&] {
      return PbrCounters( key, PbrCountersKey( longKey.policyKey, longKey.name, {} ), counters,
                          false );
   };
   const auto [entry, inserted] = backlog_.newMember( key, record );
   const PbrCounters & pending = entry->value();
   if ( inserted ) {
      ++account_.arrived;
      memo.rememberPending( *this );
      const PbrCounters told = pending; // A subscriber may withdraw it.
      publisher()->publishChangeRecursive( kBacklog, &key, nullptr, false, &told );
   } else if ( pending.data() == counters && !pending.deletedKey() &&
               pending.longKey() == longKey ) {
      filedAgain();
      memo.rememberPending( *this );
   } else {
      backlogIs( record() );
   }
}

PbrCounters PbrCountersBacklog::backlogDel( std::uint64_t shortKey ) {
   std::optional< PbrCounters > removed = backlog_.takeMember( shortKey );
   if ( !removed ) { return {}; }
   ++withdrawals_;
   ++account_.cancelled;
   publisher()->publishChangeRecursive( kBacklog, &shortKey, &*removed );
   return *std::move( removed );
}

void PbrCountersBacklog::backlogDelAll() {
   if ( !publisher()->hasSubscribers() ) {
      ++withdrawals_;
      account_.cancelled += backlog_.size();
      backlog_.memberDelAll();
      return;
   }
   const Lumo::Ptr self( this );
   for ( auto at = backlog_.iterator(); at; at.advance() ) { backlogDel( at.key() ); }
}

void PbrCountersBacklog::processItem( std::uint64_t, const PbrCounters & c ) {
   const Lumo::Ptr self( this );
   const Lumo::Ptr< PbrCountersFrontend > consumer = frontend_;
   const std::uint64_t key = c.shortKey();
   PbrCountersEncodingFlags flags;
   flags.encodeLongKeyIs( shortKeys_->isNovelKey( key ) );
   flags.deleteKeyIs( c.deletedKey() );
   const auto notTold = [this, key, novel = flags.encodeLongKey(), filings = filings_] {
      // If everything was filed anew meanwhile, the table says what is novel now.
      if ( novel && filings == filings_ ) { shortKeys_->novelKeyIs( key ); }
   };
   try { // Also what a trace sink throws.
      LUMO_TRACE( trace(), 7, "Processing short key {} with flags {}", key, flags );
      if ( flags.encodeLongKey() && flags.deleteKey() ) {
         LUMO_TRACE( trace(), 7, "coalesced a new key and a deleted key: ignoring" );
         ++account_.cancelled;
         return;
      }
      if ( !consumer ) { // Taken away during a run.
         ++account_.dropped;
         return notTold();
      }
      consumer->appendItem( c, flags );
      ++account_.delivered;
   } catch ( ... ) {
      notTold();
      throw;
   }
}

void PbrCountersBacklog::process( const Lumo::Ptr< Oru::Task > & task ) {
   LUMO_TRACE( trace(), 8, "process" );
   ++withdrawals_; // All of them, for the length of the run.
   if ( !frontend_ ) {
      account_.dropped += backlog_.size();
      backlog_.memberDelAll();
      return;
   }
   // The frontend may drop whoever holds us or the task.
   const Lumo::Ptr self( this );
   const Lumo::Ptr< Oru::Task > running = task;
   const std::uint64_t taken = backlog_.size();
   const detail::WitnessedRun steps( *this );
   const auto outdated = [this, filings = filings_] { return filings_ != filings; };
   const auto ended = [&]( const QuonLumo::MiBacklogProgress & progress, bool broke ) {
      runAccounted( taken, outdated(), progress );
      steps.ended( progress, broke );
      runReported( running, progress );
   };
   const QuonLumo::MiBacklogProgress progress = QuonLumo::Impl::_processBacklog(
      backlog_, bookmark_, [&] { return steps.asked( running && running->taskShouldYield() ); },
      [&]( std::uint64_t shortKey, const PbrCounters & c ) {
         steps.item( shortKey, c );
         processItem( shortKey, c );
      },
      [&] { return steps.askedIfOutdated( outdated() ); },
      [&]( const QuonLumo::MiBacklogProgress & broken ) { ended( broken, true ); } );
   ended( progress, false );
   if ( const Lumo::Ptr< PbrCountersFrontend > consumer = frontend_ ) { consumer->push(); }
   LUMO_TRACE( trace(), 7, "EnqueueMessages Progress {}", progress );
}

/// What was left over and has been overtaken by an arrival is gone after the merge. What an
/// outdated run has not processed is gone as well.
void PbrCountersBacklog::runAccounted( std::uint64_t taken, bool outdated,
                                       const QuonLumo::MiBacklogProgress & progress ) {
   account_.coalesced += progress.remainingCount + progress.arrivedCount - progress.pendingCount;
   if ( outdated ) {
      account_.cancelled += taken - progress.processedCount - progress.remainingCount;
   }
}

PbrCountersBacklogAccount PbrCountersBacklog::account() const {
   PbrCountersBacklogAccount now = account_;
   now.pending = backlog_.size();
   return now;
}

void PbrCountersBacklog::runReported( const Lumo::Ptr< Oru::Task > & task,
                                      const QuonLumo::MiBacklogProgress & progress ) {
   if ( !task ) { return; }
   task->taskWorkCountInc( progress.processedCount );
   task->taskWorkPendingIs( progress.pendingCount );
   if ( progress.pendingCount != 0 ) { task->scheduleTask(); }
}

Lumo::Ptr< PbrCountersBacklog >
pbrCountersBacklogFactory( const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys ) {
   return Lumo::makeNode< PbrCountersBacklog >( shortKeys );
}

Lumo::Ptr< PbrCountersBacklog >
PbrCountersBacklogIs( const Lumo::Ptr< PbrCountersKeyCompressionTable > & shortKeys ) {
   return pbrCountersBacklogFactory( shortKeys );
}

} // namespace VeloSdkRpc
