#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

#include "Quon/Quon.h"

namespace VeloSdkRpc::detail {

/// Which outputs of a state machine are ready, and whether all are.
///
/// Owner      the top-level state machine
/// Thread     event loop only
/// Invariant  `ready` is the conjunction of all output flags, unless `readyIs` set it directly
template< std::size_t outputs >
class OutputStateRecord : public Quon::PublishingEntity {
 public:
   /// Output n is published as attribute `kFirstOutput + n`.
   enum Attribute : short { kReady = 1, kFirstOutput };

   bool ready() const { return ready_; }
   void readyIs( bool ready ) {
      const bool old = std::exchange( ready_, ready );
      publisher()->publishChangeRecursive( kReady, nullptr, &old, old == ready, &ready );
   }

   /// Recomputes the conjunction.
   void handleReady() {
      readyIs(
         std::all_of( outputReady_.begin(), outputReady_.end(), []( bool r ) { return r; } ) );
   }

 protected:
   bool outputReady( std::size_t n ) const { return outputReady_[n]; }

   /// `ready` is published first, then the output's own flag.
   void outputReadyIs( std::size_t n, bool ready ) {
      if ( outputReady_[n] == ready ) { return; }
      const Lumo::Ptr self( this ); // A subscriber may drop the machine.
      const bool old = std::exchange( outputReady_[n], ready );
      handleReady();
      publisher()->publishChange( static_cast< short >( kFirstOutput + n ), nullptr, &old, &ready );
   }

 private:
   std::array< bool, outputs > outputReady_{};
   bool ready_ = false;
};

} // namespace VeloSdkRpc::detail
