/// A client's end of the PBR counters stream: what it has been told so far.
///
/// Owner      whoever watches
/// Invariant  holds the long key of every class that the agent has told this client of and not
///            taken back, over all calls that were resumed

#pragma once

#include "agent/LineFormat.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

namespace velo::rpc::v1 {
class PbrCountersRecord;
class PbrCountersWatchResponse;
} // namespace velo::rpc::v1

namespace VeloCtl {

/// How what comes is shown.
class PbrView {
 public:
   virtual ~PbrView() = default;

   /// `outcome` is one of snapshot, resumed, reset.
   virtual void opened( const std::string & outcome ) = 0;
   virtual void record( const VeloAgent::DeliveredRecord & record ) = 0;
   /// The end of a batch of `records` records.
   virtual void push( std::uint64_t records ) = 0;
   virtual void inSync() = 0;
   virtual void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) = 0;
   virtual void tick() = 0;
};

struct KnownClass {
   std::string policy;
   std::string className;
   std::string aclRule;
   std::optional< VeloAgent::Counters > counters;
};

class PbrReader {
 public:
   using Classes = std::unordered_map< std::uint64_t, KnownClass >;

   /// Shows everything to `view`, which outlives this, until `mostRecords` have been.
   PbrReader( PbrView & view, std::uint64_t mostRecords )
      : view_( view ), mostRecords_( mostRecords ) {}

   /// Throws a Failure if the agent breaks the stream's contract.
   void take( const velo::rpc::v1::PbrCountersWatchResponse & message );

   /// By short key.
   const Classes & classes() const { return classes_; }
   /// To resume behind the last message; empty before the first.
   const std::string & resumeToken() const { return resumeToken_; }
   std::uint64_t records() const { return records_; }
   bool inSync() const { return inSync_; }
   bool enough() const { return records_ >= mostRecords_; }

 private:
   void takeOpened( int outcome );
   void takeRecord( const velo::rpc::v1::PbrCountersRecord & record );

   PbrView & view_;
   const std::uint64_t mostRecords_;
   Classes classes_;
   std::string resumeToken_;
   std::uint64_t records_ = 0;
   std::uint64_t recordsInBatch_ = 0;
   bool inSync_ = false;
};

} // namespace VeloCtl
