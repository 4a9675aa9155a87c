#include "agent/metrics/Metrics.h"

#include "agent/metrics/LoopCollectable.h"
#include "agent/metrics/MetricFamilies.h"

#include <fmt/format.h>
#include <prometheus/exposer.h>
#include <stdexcept>

namespace VeloAgent {

namespace {

/// Much longer than a slice, and shorter than those who fetch metrics wait.
constexpr std::chrono::seconds kPatience{ 2 };

} // namespace

Metrics::Metrics( EventLoop & loop, const Inspection & inspection, const std::string & address )
   : collectable_( std::make_shared< LoopCollectable >(
        loop, [&inspection] { return metricFamiliesOf( inspection ); }, kPatience ) ) {
   try {
      exposer_ = std::make_unique< prometheus::Exposer >( address );
   } catch ( const std::exception & ) {
      throw std::runtime_error( fmt::format(
         "cannot serve metrics at {}: the port is taken, or this machine has no such address",
         address ) );
   }
   exposer_->RegisterCollectable( collectable_ );
}

/// Whoever asks at this moment must not be waited for: the loop that would answer is this thread.
Metrics::~Metrics() { collectable_->close(); }

int Metrics::port() const { return exposer_->GetListeningPorts().front(); }

} // namespace VeloAgent
