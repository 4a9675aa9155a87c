#pragma once

#include "Lumo/Lumo.h"
#include "VeloSdkRpc/Export.h"
#include "VeloSdkRpc/detail/PbrCounters.h"
#include "VeloSdkRpc/detail/PbrCountersEncodingFlags.h"

namespace VeloSdkRpc {

/// The consumer of the stream, implemented by the service that feeds a client.
///
/// Owner      the backlog, once it is watching, and whoever made it
/// Thread     event loop only
/// Re-entry   both calls may use the stream in any way: write records, start or stop watching,
///            drop the last reference to any part of it, throw. A record whose `appendItem` threw
///            has not been delivered and comes again.
///
/// Long keys that were known before watching began are not announced as new: a consumer keeps the
/// set of short keys that it has been told, and takes the long key from the record when it meets
/// one for the first time. It may also be told of the end of a short key that it was never told:
/// one that came and went across a switch of consumers.
class VELO_SDK_RPC_EXPORT PbrCountersFrontend : public Lumo::Node {
 public:
   ~PbrCountersFrontend() override;

   /// One record. With `encodeLongKey` the long key must be sent along; with `deleteKey` the short
   /// key is gone for good.
   virtual void appendItem( const PbrCounters & record, PbrCountersEncodingFlags flags ) = 0;

   /// The end of a batch, which may be empty.
   virtual void push() = 0;
};

} // namespace VeloSdkRpc
