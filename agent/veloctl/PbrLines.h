/// The PBR counters stream as lines, each complete in itself: the long key is in every record.
///
/// Records and ends of batches look as in the agent's own output (agent/LineFormat.h).

#pragma once

#include "agent/veloctl/PbrReader.h"
#include "agent/veloctl/Session.h"

#include <memory>

namespace VeloCtl {

class PbrLines final : public PbrView {
 public:
   explicit PbrLines( Session & session );

   void opened( const std::string & outcome ) override;
   void record( const VeloAgent::DeliveredRecord & record ) override;
   void push( std::uint64_t records ) override;
   void inSync() override;
   void interrupted( const std::string & why, std::chrono::milliseconds retryIn ) override;
   void tick() override;

 private:
   Session & session_;
   const std::unique_ptr< VeloAgent::LineFormat > format_;
};

/// What both streams say when they are interrupted.
std::string interruptionLine( Format format, const std::string & why,
                              std::chrono::milliseconds retryIn );

} // namespace VeloCtl
