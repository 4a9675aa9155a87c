/// Follows a stream of the agent for as long as people want to, over as many calls as it takes.
///
///    call ──► messages ... ──► breaks ──► wait, longer each time ──► call again ...
///
/// Only a stream that has begun is called again: an agent that cannot be reached at all, or
/// refuses, is an error like any other.

#pragma once

#include "agent/StopSignals.h"

#include <chrono>
#include <google/protobuf/message.h>
#include <string>

namespace VeloCtl {

class Client;

/// What is followed.
class Watched {
 public:
   virtual ~Watched() = default;

   /// For the next call.
   virtual const google::protobuf::Message & request() = 0;
   /// Where its messages are put; take() is called for each.
   virtual google::protobuf::Message & response() = 0;
   virtual void take() = 0;
   /// Nothing more is wanted.
   virtual bool enough() const = 0;
   virtual void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) = 0;
   /// Called now and then, whether something came or not.
   virtual void tick() = 0;
};

/// SIGINT and SIGTERM, from its making on. Made before the first call, which starts threads.
class StopRequest {
 public:
   bool asked() const { return within( std::chrono::milliseconds( 0 ) ); }
   /// Waits so long, or until asked to stop.
   bool within( std::chrono::milliseconds time ) const;

 private:
   VeloAgent::StopSignals signals_;
};

/// Returns when there is enough, or somebody asks to stop. Throws the failure that cannot be
/// mended; with `retry` false that is the first one.
void follow( Client & client, Watched & watched, const StopRequest & stop, bool retry );

} // namespace VeloCtl
