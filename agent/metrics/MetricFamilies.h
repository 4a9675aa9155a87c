/// What the agent measures, in the terms of the monitoring system: names, units and what they mean.
///
/// Every name begins with velo_agent_; what only grows ends in _total, times are in seconds.

#pragma once

#include <prometheus/metric_family.h>
#include <vector>

namespace VeloAgent {

class Inspection;

/// Event loop only.
std::vector< prometheus::MetricFamily > metricFamiliesOf( const Inspection & inspection );

/// Whether the event loop answered in time when it was asked for the others; any thread.
prometheus::MetricFamily loopAnsweringFamily( bool answering );

} // namespace VeloAgent
