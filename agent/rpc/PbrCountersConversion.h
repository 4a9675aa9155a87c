/// Changes of PBR counters as clients publish them, as the agent applies them, and back.
///
/// Thread     any

#pragma once

#include "agent/CounterChanges.h"

namespace velo::rpc::v1 {
class PbrCountersChange;
class PublishPbrCountersRequest;
} // namespace velo::rpc::v1

namespace VeloAgent {

/// Errors: BadRequest, with the place of what is wrong.
CounterChanges changesFrom( const velo::rpc::v1::PublishPbrCountersRequest & request );

/// The message for `change`.
velo::rpc::v1::PbrCountersChange messageOf( const CounterChange & change );

} // namespace VeloAgent
