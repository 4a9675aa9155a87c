/// One client's stream of MPLS routes that the hardware forwards by.
///
///    opened ──► batch…          one call, and there is no way back to it
///
/// Owner      MplsStreams
/// Thread     event loop only
/// Memory     one route per label that the client has yet to be told: latest wins
/// Invariant  what arrives behind the cursor of a pass over the backlog waits for the next pass: so
///            each label has its turn, however fast others change

#pragma once

#include "Lumo/String.h"
#include "Mpls/Mpls.h"
#include "Oru/Oru.h"
#include "Quon/Quon.h"
#include "agent/stream/ClientCall.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace velo::rpc::v1 {
class MplsRouteProgrammingWatchResponse;
} // namespace velo::rpc::v1

namespace VeloAgent {

using MplsCall = MessageStream< velo::rpc::v1::MplsRouteProgrammingWatchResponse >;

/// A route, and the name that its next-hop group had when it was told.
struct NamedMplsRoute {
   Mpls::Hardware::Route route;
   Lumo::String nexthopGroup;
};

class MplsStream final : public WatchingClient, private MessageStreamOwner {
 public:
   /// Whom a stream tells about itself.
   struct Listener {
      std::function< void() > ready;                      ///< There is something that can be told.
      std::function< void( WatchingClients::Id ) > ended; ///< It is to be let go of.
   };

   /// All but `call` outlive this.
   MplsStream( MplsCall & call, WatchingClients & clients, const StreamOptions & options,
               Oru::Clock & clock, const Listener & listener );
   ~MplsStream() override;

   WatchingClients::Id id() const { return client_; }

   void routeIs( const NamedMplsRoute & route );

   /// Whether there is something to tell and room for it.
   bool ready() const { return call_.writable() && ( !opened_ || !backlog_.empty() ); }
   /// Sends one message. Only while `ready()`.
   void compose();

   /// Closes a call that has taken nothing for too long.
   void closeIfStuck() { call_.closeIfStuck( "watch again for what comes" ); }
   /// Closes the call as soon as there is nothing to tell.
   void closeWhenTold();
   /// Closes the call, whatever there is to tell.
   void closeNow() { call_.closeNow(); }

   ClientReport report() const override;

 private:
   using Backlog = Quon::HashMap2018< Mpls::RouteKey, NamedMplsRoute >;

   void writable() override;
   void ended() override { listener_.ended( client_ ); }

   std::size_t fillBatch( velo::rpc::v1::MplsRouteProgrammingWatchResponse & message );
   void closeIfTold();

   WatchingClients & clients_;
   const StreamOptions & options_;
   const Listener & listener_;
   ClientCall< velo::rpc::v1::MplsRouteProgrammingWatchResponse > call_;
   const WatchingClients::Id client_;

   Backlog backlog_;
   std::optional< Mpls::RouteKey > cursor_; ///< Nothing: a pass is to begin.
   bool opened_ = false;
   bool closing_ = false;
};

} // namespace VeloAgent
