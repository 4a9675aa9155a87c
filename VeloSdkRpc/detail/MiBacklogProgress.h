#pragma once

#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Quon/Quon.h"
#include "VeloSdkRpc/Export.h"

namespace QuonLumo {

/// What one draining run did.
struct MiBacklogProgress {
   bool yielded = false;             ///< The run stopped because the task had to yield.
   std::uint32_t pendingCount = 0;   ///< Entries in the backlog after the run.
   std::uint32_t processedCount = 0; ///< Records handed to the action.
   std::uint32_t arrivedCount = 0;   ///< Entries written into the backlog during the run.
   std::uint32_t remainingCount = 0; ///< Entries taken at the start and not processed.
   std::uint32_t passCount = 0;      ///< How often the run reached the end of what it had taken.

   friend bool operator==( const MiBacklogProgress &, const MiBacklogProgress & ) = default;

   static constexpr std::string_view kTypeName = "QuonLumo::MiBacklogProgress";
   static constexpr auto attributes() {
      using Progress = MiBacklogProgress;
      return std::make_tuple( Quon::attribute( "yielded", &Progress::yielded ),
                              Quon::attribute( "pendingCount", &Progress::pendingCount ),
                              Quon::attribute( "processedCount", &Progress::processedCount ),
                              Quon::attribute( "arrivedCount", &Progress::arrivedCount ),
                              Quon::attribute( "remainingCount", &Progress::remainingCount ),
                              Quon::attribute( "passCount", &Progress::passCount ) );
   }
};

VELO_SDK_RPC_EXPORT std::ostream & operator<<( std::ostream & os,
                                               const MiBacklogProgress & progress );

} // namespace QuonLumo
