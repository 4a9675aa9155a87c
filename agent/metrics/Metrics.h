/// The agent's metrics over HTTP, for a monitoring system to fetch: http://HOST:PORT/metrics.
///
/// They are not secret and can change nothing, so they are neither encrypted nor protected; whoever
/// can reach the address can read them.
///
/// Owner      the agent
/// Thread     event loop; the exposer has its own

#pragma once

#include "agent/EventLoop.h"

#include <memory>
#include <string>

namespace prometheus {
class Exposer;
}

namespace VeloAgent {

class Inspection;
class LoopCollectable;

class Metrics {
 public:
   /// Listens at `address`, HOST:PORT. `loop` and `inspection` outlive this. Throws
   /// std::runtime_error with a text that says what would be right.
   Metrics( EventLoop & loop, const Inspection & inspection, const std::string & address );
   ~Metrics();
   Metrics( const Metrics & ) = delete;
   Metrics & operator=( const Metrics & ) = delete;

   /// Where it listens, for whoever asked for port 0.
   int port() const;

 private:
   const std::shared_ptr< LoopCollectable > collectable_;
   std::unique_ptr< prometheus::Exposer > exposer_;
};

} // namespace VeloAgent
