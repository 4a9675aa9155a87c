// A whole draining run of a backlog - flags, novelty, progress, the task, consumers that re-enter,
// leave and throw - against a naive model of it.

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Lumo/CapturingTraceSink.h"
#include "Quon/KeyedCollectionModel.h"
#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/test/BacklogScript.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/Loop.h"
#include "VeloSdkRpc/test/NaiveBacklog.h"
#include "VeloSdkRpc/test/RunConformance.h"

namespace VeloSdkRpc::test {
namespace {

using Quon::test::require;

/// One delivery, as a consumer sees it.
struct Heard {
   unsigned consumer;
   std::uint64_t key;
   bool encodeLongKey, deleteKey;
   PbrCounters record;
   friend bool operator==( const Heard &, const Heard & ) = default;
};

/// What can be seen of a backlog, its table and its task after a run.
struct State {
   std::vector< Heard > heard;
   std::vector< unsigned > pushes; ///< Who was pushed.
   bool failed = false;
   std::vector< PbrCounters > pending;
   std::vector< std::uint64_t > bookmark;
   std::set< std::uint64_t > novel;
   std::string progress; ///< The text that was traced; none if none was.
   std::uint64_t workCount = 0;
   std::size_t workPending = 0;
   unsigned changes = 0;  ///< Published by the backlog so far.
   bool askedFor = false; ///< Whether the run asked for another one.
   PbrCountersBacklogAccount account;
   friend bool operator==( const State &, const State & ) = default;
};

/// Does the deeds of a script; who files, and to whom, is told by the two sides below.
class Writer {
 public:
   virtual ~Writer() = default;

   void performAll( const Deeds & deeds ) {
      for ( const Deed & deed : deeds ) { perform( deed ); }
   }

 protected:
   virtual void backlogIs( const PbrCounters & record ) = 0;
   virtual void backlogDel( std::uint64_t key ) = 0;
   virtual void novelKeyIs( std::uint64_t key ) = 0;
   /// 0: nobody watches any more.
   virtual void watchedBy( unsigned consumer ) = 0;
   virtual void allFiledAnew() = 0;

   /// Deeds of the n-th call in the current run.
   std::vector< Deeds > during_;
   std::size_t calls_ = 0;
   State seen_;

   void heard( unsigned consumer, const PbrCounters & c, PbrCountersEncodingFlags flags ) {
      seen_.heard.push_back(
         { consumer, c.shortKey(), flags.encodeLongKey(), flags.deleteKey(), c } );
      called();
   }
   void pushed( unsigned consumer ) {
      seen_.pushes.push_back( consumer );
      called();
   }

 private:
   void called() {
      if ( const std::size_t call = calls_++; call < during_.size() ) {
         performAll( during_[call] );
      }
   }

   void perform( const Deed & deed ) {
      const std::uint64_t key = deed.key + 1;
      const PbrCountersKey longKey( PolicyMap::Counters::PolicyMapKey( "p" ), std::to_string( key ),
                                    {} );
      switch ( deed.verb ) {
      case Verb::file: // Few different counters, so that equal records are filed too.
         return backlogIs( PbrCounters( key, longKey, counters()[++filings_ % 2], false ) );
      case Verb::fileDeletion:
         return backlogIs( PbrCounters( key, longKey, nullptr, true ) );
      case Verb::withdraw:
         return backlogDel( key );
      case Verb::makeNovel:
         return novelKeyIs( key );
      case Verb::fail:
         throw ConsumerBroke();
      case Verb::leave:
         return watchedBy( 0 );
      case Verb::join:
         return watchedBy( ++consumers_ );
      case Verb::fileAnew:
         return allFiledAnew();
      }
   }

   static const std::vector< PbrCounters::Data > & counters() {
      using PolicyMap::Counters::CountersData;
      static const std::vector< PbrCounters::Data > two = { Lumo::makeNode< CountersData >( "a" ),
                                                            Lumo::makeNode< CountersData >( "b" ) };
      return two;
   }

   unsigned filings_ = 0;
   unsigned consumers_ = 0;
};

/// The real thing.
class RealStream final : public Writer {
 public:
   RealStream() { backlog_->publisher()->subscriberAdd( slot_ ); }

   State run( const Step & step, Loop & loop ) {
      performAll( step.before );
      during_ = step.during;
      calls_ = 0;
      seen_.failed = false;
      loop.yieldsAfter( step.goOns );
      loop.runUntilIdle(); // Nobody listens to the task: all it does is forget what was asked.
      const Lumo::CapturingTraceSink traces( "PbrCountersBacklog", Lumo::traceLevels( 7 ) );
      try {
         backlog_->process( task_ );
      } catch ( const ConsumerBroke & ) { seen_.failed = true; }
      State now = std::exchange( seen_, State() );
      for ( const auto & entry : backlog_->backlog() ) { now.pending.push_back( entry.value() ); }
      if ( backlog_->bookmark() ) { now.bookmark.push_back( *backlog_->bookmark() ); }
      for ( const auto & entry : table_->novelKey() ) { now.novel.insert( entry.fwkKey() ); }
      for ( const auto & message : traces.messages ) {
         if ( message.text.starts_with( "EnqueueMessages" ) ) { now.progress = message.text; }
      }
      now.workCount = task_->taskWorkCount();
      now.workPending = task_->taskWorkPending();
      now.changes = changes_;
      now.askedFor = loop.pending() != 0;
      now.account = backlog_->account();
      return now;
   }

 private:
   class Consumer final : public PbrCountersFrontend {
    public:
      Consumer( RealStream & stream, unsigned number ) : stream_( stream ), number_( number ) {}
      void appendItem( const PbrCounters & c, PbrCountersEncodingFlags flags ) override {
         stream_.heard( number_, c, flags );
      }
      void push() override { stream_.pushed( number_ ); }

    private:
      RealStream & stream_;
      const unsigned number_;
   };

   void backlogIs( const PbrCounters & record ) override { backlog_->backlogIs( record ); }
   void backlogDel( std::uint64_t key ) override { backlog_->backlogDel( key ); }
   void novelKeyIs( std::uint64_t key ) override { table_->novelKeyIs( key ); }
   void watchedBy( unsigned consumer ) override {
      backlog_->frontendIs( consumer ? Lumo::makeNode< Consumer >( *this, consumer ) : nullptr );
   }

   void allFiledAnew() override { backlog_->allFiledAnew(); }

   struct CountingSlot : Lumo::Subscriber {
      explicit CountingSlot( unsigned & changes ) : Subscriber( &dispatch ), count( changes ) {}
      static void dispatch( Lumo::Publisher *, Lumo::Subscriber * slot, short attributeId,
                            const void *, const void * ) {
         const bool counts = attributeId == PbrCountersBacklog::kBacklog;
         static_cast< CountingSlot * >( slot )->count += counts;
      }
      unsigned & count;
   };

   const Lumo::Ptr< PbrCountersKeyCompressionTable > table_ = PbrCountersKeyCompressionTableIs();
   const Lumo::Ptr< PbrCountersBacklog > backlog_ = PbrCountersBacklogIs( table_ );
   const Lumo::Ptr< Oru::Task > task_ = Lumo::makeNode< Oru::Task >(
      Oru::TaskSchedulerRoot::findOrCreateScheduler(), Oru::TaskPriority{ 3 }, "drain" );
   unsigned changes_ = 0;
   CountingSlot slot_{ changes_ };
};

/// The same in a few sentences.
class NaiveStream final : public Writer {
 public:
   State run( const Step & step ) {
      performAll( step.before );
      during_ = step.during;
      calls_ = 0;
      std::string progress;
      bool failed = false;
      askedFor_ = false;
      try {
         progress = drain( step.goOns );
      } catch ( const ConsumerBroke & ) { failed = true; }
      State now = std::exchange( seen_, State() );
      now.failed = failed;
      now.progress = progress;
      for ( const auto & [key, record] : backlog_.pending ) { now.pending.push_back( record ); }
      if ( backlog_.bookmark ) { now.bookmark.push_back( *backlog_.bookmark ); }
      now.novel = novel_;
      now.workCount = workCount_;
      now.workPending = workPending_;
      now.changes = changes_;
      now.askedFor = askedFor_;
      now.account = account_;
      now.account.coalesced += backlog_.overtaken;
      now.account.cancelled += backlog_.forgotten;
      now.account.pending = backlog_.pending.size();
      return now;
   }

 private:
   std::string drain( unsigned goOns ) {
      if ( watching_ == 0 ) { // Nobody wants it.
         account_.dropped += backlog_.pending.size();
         backlog_.pending.clear();
         return {};
      }
      unsigned asks = 0;
      outdated_ = false;
      const auto reported = [this] {
         workCount_ += backlog_.progress.processedCount;
         workPending_ = backlog_.progress.pendingCount;
         askedFor_ = workPending_ != 0;
      };
      try {
         backlog_.drain( [&] { return asks++ >= goOns; },
                         [&]( std::uint64_t key, const PbrCounters & c ) { deliver( key, c ); },
                         [this] { return outdated_; } );
      } catch ( ... ) {
         reported();
         throw;
      }
      reported();
      const std::string text = fmt::format( "EnqueueMessages Progress {}", backlog_.progress );
      if ( watching_ != 0 ) { pushed( watching_ ); }
      return text;
   }

   void deliver( std::uint64_t key, const PbrCounters & c ) {
      PbrCountersEncodingFlags flags;
      flags.encodeLongKeyIs( novel_.erase( key ) != 0 );
      flags.deleteKeyIs( c.deletedKey() );
      if ( flags.value() == 3 ) {
         ++account_.cancelled;
         return;
      }
      const auto notTold = [&] {
         if ( flags.encodeLongKey() && !outdated_ ) { novel_.insert( key ); }
      };
      if ( watching_ == 0 ) { // Left during the run: the rest is thrown away.
         ++account_.dropped;
         return notTold();
      }
      try {
         heard( watching_, c, flags );
         ++account_.delivered;
      } catch ( ... ) {
         notTold();
         throw;
      }
   }

   void backlogIs( const PbrCounters & record ) override {
      const auto at = backlog_.pending.find( record.shortKey() );
      ++account_.arrived;
      account_.coalesced += at != backlog_.pending.end();
      if ( at != backlog_.pending.end() && at->second == record ) { return; }
      backlog_.file( record.shortKey(), record );
      ++changes_;
   }
   void backlogDel( std::uint64_t key ) override {
      changes_ += backlog_.pending.contains( key );
      account_.cancelled += backlog_.pending.contains( key );
      backlog_.del( key );
   }
   void novelKeyIs( std::uint64_t key ) override { novel_.insert( key ); }
   void watchedBy( unsigned consumer ) override { watching_ = consumer; }
   void allFiledAnew() override { outdated_ = true; }

   NaiveBacklog< PbrCountersBacklog::Backlog > backlog_;
   std::set< std::uint64_t > novel_;
   unsigned watching_ = 0;
   std::uint64_t workCount_ = 0;
   std::size_t workPending_ = 0;
   unsigned changes_ = 0;
   bool askedFor_ = false;
   bool outdated_ = false;
   PbrCountersBacklogAccount account_; ///< What the backlog does not count itself.
};

TEST( BacklogRunProperty, AgreesWithANaiveBacklogWhateverConsumersDo ) {
   const std::vector< Verb > outside = { Verb::file,         Verb::file,    Verb::file,
                                         Verb::fileDeletion, Verb::join,    Verb::makeNovel,
                                         Verb::join,         Verb::withdraw };
   const std::vector< Verb > inside = { Verb::file,      Verb::file,  Verb::fileDeletion,
                                        Verb::makeNovel, Verb::join,  Verb::fail,
                                        Verb::withdraw,  Verb::leave, Verb::fileAnew };
   EXPECT_TRUE( rc::check( [&] {
      const RunConformance runs;
      Loop loop;
      RealStream real;
      NaiveStream naive;
      for ( const Step & step : *scripts( outside, inside, 20 ) ) {
         const State seen = real.run( step, loop );
         const State expected = naive.run( step );
         require( runs.difference().empty() );
         require( seen.heard == expected.heard );
         require( seen.pending == expected.pending );
         require( seen.novel == expected.novel );
         require( seen.progress == expected.progress );
         require( seen.account == expected.account );
         require( seen.account.isBalanced() );
         require( seen == expected );
      }
   } ) );
}

} // namespace
} // namespace VeloSdkRpc::test
