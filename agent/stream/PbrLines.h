/// The stream as lines: the client on standard output.
///
/// It is told as any other client is, each record in a line and each end of a batch in another, and
/// like any other it is left behind when its reader is slow, and given the newest then.
///
/// Owner      the agent
/// Thread     event loop only

#pragma once

#include "agent/LineFormat.h"
#include "agent/Output.h"
#include "agent/stream/PbrFanout.h"
#include "agent/stream/WatchingClients.h"

#include <chrono>
#include <cstdint>
#include <functional>

namespace VeloAgent {

class PbrLines final : public PbrFollower, public WatchingClient {
 public:
   /// All outlive this. `output` tells this when lines that waited have been written.
   PbrLines( PbrFanout & fanout, WatchingClients & clients, Oru::Clock & clock,
             const LineFormat & format, Output & output );
   ~PbrLines() override;

   /// Tells no record after `count` of them, and calls `full` once.
   void maxRecordsAre( std::uint64_t count, std::function< void() > full );

   /// Calls `done` once, when everything that exists has been told and every line is written, or
   /// cannot be.
   void finish( std::function< void() > done );
   /// Looks whether that is so; to be called now and then: what the library had yet to deliver may
   /// have come to nothing.
   void finishIfDone();
   /// Tells nothing more. What was told ends like a batch.
   void stop();

   bool ready() const override;
   void compose( Oru::Task & task ) override;

   ClientReport report() const override;

 private:
   void tell( const PbrNews & news );
   void endBatch();
   void writtenByNow();

   PbrFanout & fanout_;
   WatchingClients & clients_;
   Oru::Clock & clock_;
   const LineFormat & format_;
   Output & output_;
   const WatchingClients::Id client_;

   std::uint64_t sinceBatch_ = 0;
   std::uint64_t mayFollow_ = UINT64_MAX;
   std::function< void() > full_;
   std::function< void() > done_;

   std::chrono::nanoseconds lastTaken_;
   std::uint64_t recordsSent_ = 0;
   std::uint64_t batchesSent_ = 0;
};

} // namespace VeloAgent
