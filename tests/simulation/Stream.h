#pragma once

#include <memory>
#include <optional>

#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/CountersTree.h"

/// What stands between the tree and the consumer, in its two lives: as the manager makes it, and as
/// one makes it by hand over a table and a backlog that are there already.
namespace VeloSdkRpc::simulation {

using TreeRoot = Lumo::Ptr< PolicyMap::Counters::PolicyMapTypeCounters >;

/// Ways to get it wrong, for the proof that the simulation notices.
enum class Mistake {
   none,
   keepsWhatARunHasTaken, ///< A run survives a new start of the stream.
   doesNotReconcile,      ///< Old records survive a new start.
   losesWhatWasThrownAt,  ///< What a consumer threw at is not told again.
   forgetsDeletions,      ///< The consumer does not hear of them.
};

class Stream {
 public:
   virtual ~Stream() = default;

   virtual void start( const Lumo::Ptr< PbrCountersFrontend > & frontend ) = 0;
   virtual void stop() = 0;
   virtual bool streaming() const = 0;
   virtual const Lumo::Ptr< PbrCountersBacklog > & backlog() const = 0;

   /// Whether it sees the tree at all.
   virtual bool mounted() const = 0;
   /// Whether all scans are done: until then what goes may have no short key yet.
   virtual bool scanned() const = 0;
   /// Whether its table never has anything but the classes of the tree.
   virtual bool tableIsExact() const = 0;

   const PbrCountersKeyCompressionTable & table() const { return *backlog()->shortKeys(); }
};

/// The manager, over `root` mounted where it belongs; over nothing, or over something else, if `n`
/// says so.
std::unique_ptr< Stream > managedStream( const TreeRoot & root, unsigned n );

/// The state machines over the table and backlog of a stream that is gone; synchronous or in
/// slices, as `n` says.
std::unique_ptr< Stream > restartedStream( const TreeRoot & root,
                                           const Lumo::Ptr< PbrCountersBacklog > & backlog,
                                           unsigned n, Mistake mistake );

} // namespace VeloSdkRpc::simulation
