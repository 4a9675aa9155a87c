#include "agent/stream/PbrFanout.h"

#include "VeloSdkRpc/PbrCountersMgr.h"

#include <algorithm>
#include <utility>

namespace VeloAgent {

namespace {

bool scanDone( const VeloSdkRpc::PbrPolicyCountersMgr & mgr ) {
   const auto & machine = mgr.pbrCountersBacklogSm();
   return machine && machine->initialScanDone();
}

} // namespace

PbrFanout::PbrFanout( const Lumo::Ptr< Oru::TaskScheduler > & scheduler,
                      const VeloSdkRpc::PbrPolicyCountersMgr & mgr )
   : task_( Lumo::makeNode< Oru::Task >( scheduler, kPriority, "PbrClientStreams" ) ), mgr_( mgr ) {
   Lumo::subscriptionIs( task_->publisher(), onRun_, true );
}

PbrFanout::~PbrFanout() = default;

void PbrFanout::appendItem( const VeloSdkRpc::PbrCounters & record,
                            VeloSdkRpc::PbrCountersEncodingFlags ) {
   const std::uint64_t key = record.shortKey();
   lastKey_ = std::max( lastKey_, key );
   if ( record.deletedKey() ) {
      latest_.deleteMember( key );
      for ( PbrFollower * const follower : followers_ ) {
         follower->keys_.gone( key, record.longKey() );
      }
   } else {
      latest_.memberIs( key, record );
      for ( PbrFollower * const follower : followers_ ) { follower->keys_.changed( key ); }
   }
}

void PbrFanout::push() { wakeUp(); }

/// A short key is novel until its class was delivered, and they are given out in order.
bool PbrFanout::complete() const {
   if ( complete_ || !scanDone( mgr_ ) ) { return complete_; }
   const auto & table = *mgr_.shortKeys();
   if ( !lastOfScan_ ) { lastOfScan_ = table.nextKey(); }
   const auto undelivered = table.novelKey().checkedIterator();
   complete_ = !undelivered || undelivered->fwkKey() > *lastOfScan_;
   return complete_;
}

bool PbrFanout::allDelivered() const {
   return scanDone( mgr_ ) && mgr_.backlog()->backlog().empty();
}

void PbrFanout::followerIs( PbrFollower & follower ) {
   followers_.push_back( &follower );
   wakeUp();
}

void PbrFanout::followerDel( PbrFollower & follower ) { std::erase( followers_, &follower ); }

/// Every follower in turn tells one portion. Whoever was cut short by the end of the slice is the
/// last in the next run.
void PbrFanout::composingRun( Lumo::Publisher *, Lumo::Subscriber *, short attributeId,
                              const void *, const void * ) {
   if ( attributeId != Oru::Task::kRun ) { return; }
   bool unfinished = false;
   for ( std::size_t turns = followers_.size(); turns > 0; --turns ) {
      next_ = next_ < followers_.size() ? next_ : 0;
      PbrFollower & follower = *followers_[next_++];
      if ( !follower.ready() ) { continue; }
      follower.compose( *task_ );
      task_->taskWorkCountInc( 1 );
      unfinished = unfinished || follower.ready();
      if ( turns > 1 && task_->taskShouldYield() ) {
         unfinished = true;
         break;
      }
   }
   if ( unfinished ) { task_->scheduleTask(); }
}

} // namespace VeloAgent
