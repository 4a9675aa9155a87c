/// What can be seen of the agent from outside, for those who look: as plain values, with nothing
/// disturbed by looking.
///
/// Owner      the agent
/// Thread     event loop only

#pragma once

#include "Oru/Oru.h"
#include "agent/Managers.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace VeloAgent {

class ConnectionGate;
class WatchingClients;

struct PbrStreamReport {
   bool streaming = false;
   bool initialScanDone = false;
   std::size_t shortKeys = 0; ///< Pairs in the key compression table.
   std::uint64_t lastShortKey = 0;
   std::size_t novelKeys = 0;
   std::size_t backlog = 0;
   std::optional< std::uint64_t > bookmark;
   VeloSdkRpc::PbrCountersBacklogAccount account;
};

class Inspection {
 public:
   /// All of them outlive this.
   Inspection( Managers & managers, const Oru::TaskScheduler & scheduler,
               const WatchingClients & clients )
      : managers_( managers ), scheduler_( scheduler ), clients_( clients ) {}

   /// What the health service says too; false at first.
   bool ready() const { return ready_; }
   void readyIs( bool ready ) { ready_ = ready; }

   /// Since this was made.
   std::chrono::milliseconds uptime() const;
   std::chrono::system_clock::time_point began() const { return began_; }

   std::vector< MountReport > mounts() const { return managers_.mounts(); }
   /// O(1) in the number of classes.
   PbrStreamReport pbrStream() const;
   /// The longest wait first.
   std::vector< VeloSdkRpc::MplsRouteHwProgrammingSm::ParkedRoutes > parkedRoutes() const;
   const Oru::TaskScheduler & scheduler() const { return scheduler_; }
   const WatchingClients & clients() const { return clients_; }

   /// Where clients come in; null: nowhere.
   const ConnectionGate * connections() const { return connections_; }
   void connectionsAre( const ConnectionGate & connections ) { connections_ = &connections; }

 private:
   Managers & managers_;
   const Oru::TaskScheduler & scheduler_;
   const WatchingClients & clients_;
   const std::chrono::system_clock::time_point began_ = std::chrono::system_clock::now();
   const std::chrono::steady_clock::time_point beganSteady_ = std::chrono::steady_clock::now();
   const ConnectionGate * connections_ = nullptr;
   bool ready_ = false;
};

} // namespace VeloAgent
