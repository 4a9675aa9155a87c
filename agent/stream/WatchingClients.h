/// The clients that watch something: who they are and how far each is.
///
/// Every stream of the agent enters itself here for as long as it has a client, or may be resumed
/// by one, and so it is that people see it, and that their number is bounded.
///
/// Owner      the agent
/// Thread     event loop only

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace VeloAgent {

enum class ClientStream { pbrCounters, mplsRoutes, standardOutput };
enum class ClientState { snapshot, inSync, away };

/// How far a client is; for people who look.
struct ClientReport {
   std::string peer; ///< As the transport names it.
   ClientStream stream = ClientStream::pbrCounters;
   ClientState state = ClientState::snapshot;
   std::size_t queue = 0; ///< Keys whose change it has yet to be told.
   std::size_t told = 0;  ///< Short keys that it was told.
   std::uint64_t recordsSent = 0;
   std::uint64_t messagesSent = 0;
   std::uint64_t idleMs = 0; ///< Since it took something last.
};

class WatchingClient {
 public:
   virtual ~WatchingClient() = default;

   virtual ClientReport report() const = 0;
};

class WatchingClients {
 public:
   using Id = std::uint64_t;

   /// Those that are there, by id; ids are given out in order and never again.
   const std::map< Id, WatchingClient * > & clients() const { return clients_; }

   /// `client` must be taken out before it goes.
   Id enter( WatchingClient & client ) {
      clients_.emplace( ++lastId_, &client );
      return lastId_;
   }
   void leave( Id id ) { clients_.erase( id ); }

 private:
   std::map< Id, WatchingClient * > clients_;
   Id lastId_ = 0;
};

} // namespace VeloAgent
