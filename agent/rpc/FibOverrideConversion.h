/// Overrides of vias, between the messages of clients and the values of the FIB.
///
///    messageOf( valueFrom( m ) )   says the same as m, in the one spelling of addresses
///    valueFrom( messageOf( v ) )   is v
///
/// Thread     any

#pragma once

#include "Routing/Fib/Fib.h"

namespace velo::rpc::v1 {
class FibOverride;
class FibOverrideMatcher;
} // namespace velo::rpc::v1

namespace VeloAgent {

/// Errors: BadRequest, with the place, for what is no address, prefix, label or name. Whether the
/// whole makes sense is for the configuration to say.
Routing::Fib::FibOverrideVia overrideFrom( const velo::rpc::v1::FibOverride & message );
Routing::Fib::FibOverrideViaMatcher
matcherFrom( const velo::rpc::v1::FibOverrideMatcher & message );

/// Into `message`, which is empty.
void toMessage( const Routing::Fib::FibOverrideVia & value, velo::rpc::v1::FibOverride & message );

} // namespace VeloAgent
