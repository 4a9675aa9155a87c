#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "Lumo/ThrowingAssertionHandler.h"
#include "Oracle.h"
#include "Step.h"
#include "Stream.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"
#include "VeloSdkRpc/test/RunConformance.h"

namespace VeloSdkRpc::simulation {

/// How much has really happened: a simulation in which nothing does finds nothing.
struct Happenings {
   std::uint64_t steps = 0, runs = 0, records = 0, deedsInCalls = 0, streams = 0, verdicts = 0;
};

/// A tree, a stream over it, a loop that drives it and a consumer that may do anything while it is
/// told; a script says what happens. Every step is checked, `settle` asks the oracle:
///
///    a consumer that watches since streaming began knows what one would know after a cold start
///    one that took over knows nothing that is not so, and what has changed since
///    one whose stream was stopped knows the classes that there were then
///
/// and at every step: the account balances, every run is one that the naive run would have done,
/// and `ToldKeys`.
class World {
 public:
   explicit World( Mistake mistake = Mistake::none );
   ~World();
   World( const World & ) = delete;
   World & operator=( const World & ) = delete;

   /// Throws what `Violation`s and failed assertions there are.
   void play( const Script & script );

   const Happenings & happenings() const { return happenings_; }

 private:
   class Client;

   void play( const Step & step );
   void perform( const Step & step );
   void changeTree( const Step & step );
   void change( const Step & step );

   void startWatching( const Lumo::Ptr< Client > & client );
   void stopWatching();
   void streamIs( std::unique_ptr< Stream > stream );
   void streamDel();

   void slice();
   void settle();
   void askOracle();
   void checkStep();

   void delivered( Client & client, const PbrCounters & record, PbrCountersEncodingFlags flags );
   void pushed( Client & client );
   /// What the consumer has been told to do in this call.
   void called();

   bool streaming() const { return stream_ && stream_->streaming(); }
   /// What the stream sees of the tree.
   Contents visible() const;

   const Lumo::ThrowingAssertionHandler assertions_;
   const Mistake mistake_;
   test::RunConformance runs_;
   test::Loop loop_;
   test::CountersTree tree_;
   std::uint64_t packets_ = 0;

   std::unique_ptr< Stream > stream_;
   unsigned streams_ = 0;                       ///< How many there were.
   unsigned streamsBeforeSlice_ = 0;            ///< As the slice in progress began.
   Lumo::Ptr< PbrCountersBacklog > leftBehind_; ///< For a restart.
   ToldKeys toldKeys_;

   Lumo::Ptr< Client > consumer_;
   bool sinceStart_ = false;  ///< It watches since streaming began.
   Contents atStop_;          ///< What there was when it was stopped.
   std::set< Name > changed_; ///< Since it watches.

   Happenings happenings_;
   std::deque< Script > calls_; ///< What the consumer will do in its next calls.
   bool consumerRests_ = false;
};

} // namespace VeloSdkRpc::simulation
