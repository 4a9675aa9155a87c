#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "VeloSdkRpc/PbrCountersBacklog.h"
#include "VeloSdkRpc/detail/RunWitness.h"
#include "VeloSdkRpc/test/NaiveBacklog.h"

/// Every draining run of a test, replayed step by step against the naive one when it has ended.
///
///    what happened         begins  item 4  asked: go on  item 6  [5 is filed]  asked: yield  ended
///    NaiveBacklog::drain           item 4  asks          item 6                asks          same?
///
/// The naive run is given the answers that the real one got and the records that arrived meanwhile.
/// It must hand over the same records in the same order, ask the same questions at the same
/// places, and leave the same records, bookmark and progress behind.
namespace VeloSdkRpc::test {

/// What a run did, in order; and where it began and ended.
struct RecordedRun {
   using Naive = NaiveBacklog< PbrCountersBacklog::Backlog >;

   struct Item {
      std::uint64_t key;
      PbrCounters record;
   };
   struct AskedToYield {
      bool answer;
   };
   struct AskedIfOutdated {
      bool answer;
   };
   /// Somebody filed a record; none: withdrew it.
   struct Change {
      std::uint64_t key;
      std::optional< PbrCounters > record;
   };
   using Step = std::variant< Item, AskedToYield, AskedIfOutdated, Change >;

   Naive::Entries before;
   std::optional< std::uint64_t > bookmarkBefore;
   std::vector< Step > steps;
   bool broke = false;
   Naive::Entries after;
   std::optional< std::uint64_t > bookmarkAfter;
   QuonLumo::MiBacklogProgress progress;
};

/// Replays one run.
class Replay {
 public:
   explicit Replay( const RecordedRun & run ) : run_( run ) {
      naive_.pending = run.before;
      naive_.bookmark = run.bookmarkBefore;
   }

   /// The first one; empty if the naive run does just the same.
   std::string difference() {
      try {
         naive_.drain( [this] { return shouldYield(); },
                       [this]( std::uint64_t key, const PbrCounters & c ) { item( key, c ); },
                       [this] { return outdated(); } );
      } catch ( const Stop & ) {}
      if ( difference_.empty() ) {
         compare( next_ == run_.steps.size(), "the run went on where it should have ended" );
         compare( naive_.pending == run_.after, "other records are pending after the run" );
         compare( naive_.bookmark == run_.bookmarkAfter, "the bookmark is another" );
         compare( naive_.progress == run_.progress, "the progress is another" );
      }
      return difference_;
   }

 private:
   /// Thrown by an item, because it threw or because nothing after a difference matters.
   struct Stop {};

   void compare( bool same, const char * otherwise ) {
      if ( !same && difference_.empty() ) { difference_ = otherwise; }
   }

   /// The step that comes next; null if it is none of this kind.
   template< class Kind >
   const Kind * next( const char * otherwise ) {
      const Kind * const step =
         next_ < run_.steps.size() ? std::get_if< Kind >( &run_.steps[next_++] ) : nullptr;
      compare( step != nullptr, otherwise );
      return step;
   }

   bool shouldYield() {
      const auto * const asked = next< RecordedRun::AskedToYield >( "it was not asked to yield" );
      return !asked || asked->answer;
   }
   bool outdated() {
      if ( !difference_.empty() ) { return true; }
      const auto * const asked =
         next< RecordedRun::AskedIfOutdated >( "it was not asked whether it is outdated" );
      return !asked || asked->answer;
   }

   void item( std::uint64_t key, const PbrCounters & record ) {
      const auto * const item = next< RecordedRun::Item >( "a record was not handed over" );
      if ( item ) {
         compare( item->key == key && item->record == record, "another record was handed over" );
      }
      while ( next_ < run_.steps.size() && change( run_.steps[next_] ) ) { ++next_; }
      // What breaks a run is asked one question more.
      const bool broke = run_.broke && next_ + 1 == run_.steps.size();
      if ( broke || !difference_.empty() ) { throw Stop(); }
   }

   bool change( const RecordedRun::Step & step ) {
      const auto * const change = std::get_if< RecordedRun::Change >( &step );
      if ( change && change->record ) { naive_.file( change->key, *change->record ); }
      if ( change && !change->record ) { naive_.del( change->key ); }
      return change != nullptr;
   }

   const RecordedRun & run_;
   RecordedRun::Naive naive_;
   std::size_t next_ = 0;
   std::string difference_;
};

/// Replays every run of its scope, of whatever backlog, as soon as it has ended. Where runs have no
/// witness (builds without debug checks) there is nothing to replay: `replayed` stays 0.
class RunConformance final : private detail::RunWitness {
 public:
   RunConformance() : before_( detail::runWitnessIs( this ) ) {}
   ~RunConformance() { detail::runWitnessIs( before_ ); }
   RunConformance( const RunConformance & ) = delete;
   RunConformance & operator=( const RunConformance & ) = delete;

   /// Of the first run that had one; empty if none had.
   const std::string & difference() const { return difference_; }
   std::size_t replayed() const { return replayed_; }

 private:
   /// A run in progress; it hears what is filed meanwhile.
   class Running final : public Lumo::Node {
    public:
      explicit Running( const PbrCountersBacklog & backlog ) : backlog_( backlog ) {
         run.before = entries();
         run.bookmarkBefore = bookmark();
         backlog.publisher()->subscriberAdd( slot_ );
      }
      void ended( const QuonLumo::MiBacklogProgress & progress, bool broke ) {
         run.broke = broke;
         run.after = entries();
         run.bookmarkAfter = bookmark();
         run.progress = progress;
      }
      bool isOf( const PbrCountersBacklog & backlog ) const { return &backlog_ == &backlog; }

      RecordedRun run;
      bool nested = false; ///< Another run of the same backlog went on inside.

    private:
      RecordedRun::Naive::Entries entries() const {
         RecordedRun::Naive::Entries all;
         for ( const auto & entry : backlog_.backlog() ) {
            all.emplace_hint( all.end(), entry.fwkKey(), entry.value() );
         }
         return all;
      }
      std::optional< std::uint64_t > bookmark() const {
         if ( !backlog_.bookmark() ) { return std::nullopt; }
         return *backlog_.bookmark();
      }
      void heard( Lumo::Publisher *, Lumo::Subscriber *, short attributeId, const void * key,
                  const void * ) {
         if ( attributeId != PbrCountersBacklog::kBacklog ) { return; }
         RecordedRun::Change change{ *static_cast< const std::uint64_t * >( key ), {} };
         if ( const auto * entry = backlog_.backlog()[change.key] ) {
            change.record = entry->value();
         }
         run.steps.emplace_back( std::move( change ) );
      }

      const PbrCountersBacklog & backlog_;
      Lumo::MemberSubscriber< Running, &Running::heard > slot_{ this };
   };

   void runBegins( const PbrCountersBacklog & backlog ) override {
      for ( const auto & outer : running_ ) { outer->nested |= outer->isOf( backlog ); }
      running_.push_back( Lumo::makeNode< Running >( backlog ) );
   }
   void asked( bool shouldYield ) override { step( RecordedRun::AskedToYield{ shouldYield } ); }
   void item( std::uint64_t shortKey, const PbrCounters & record ) override {
      step( RecordedRun::Item{ shortKey, record } );
   }
   void askedIfOutdated( bool outdated ) override {
      step( RecordedRun::AskedIfOutdated{ outdated } );
   }
   void runEnded( const QuonLumo::MiBacklogProgress & progress, bool broke ) override {
      Running & ended = *running_.back();
      ended.ended( progress, broke );
      // What a nested run takes from it, the naive one has no words for.
      if ( !ended.nested ) {
         ++replayed_;
         if ( difference_.empty() ) { difference_ = Replay( ended.run ).difference(); }
      }
      running_.pop_back();
   }

   void step( RecordedRun::Step taken ) {
      running_.back()->run.steps.push_back( std::move( taken ) );
   }

   detail::RunWitness * const before_;
   std::vector< Lumo::Ptr< Running > > running_; ///< The innermost last.
   std::string difference_;
   std::size_t replayed_ = 0;
};

} // namespace VeloSdkRpc::test
