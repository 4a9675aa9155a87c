/// One client's stream of PBR counters, over as many calls as it takes.
///
///    opened ──► batch… ──► in_sync ──► batch…        one call
///      │ the call breaks: away, changes go on being noted
///      └──► opened( RESUMED ) ──► …                  the next one
///
/// docs/STREAM.md states what the client can rely on.
///
/// Owner      PbrStreams
/// Thread     event loop only
/// Memory     see PbrClientKeys and UndoLog; bounded by live keys and by the options

#pragma once

#include "Oru/Oru.h"
#include "agent/stream/ClientCall.h"
#include "agent/stream/PbrFanout.h"
#include "agent/stream/ResumeToken.h"
#include "agent/stream/UndoLog.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace velo::rpc::v1 {
class PbrCountersWatchResponse;
class PbrCountersWatchResponse_Batch;
} // namespace velo::rpc::v1

namespace VeloAgent {

using PbrCall = MessageStream< velo::rpc::v1::PbrCountersWatchResponse >;

class PbrStream final : public PbrFollower, public WatchingClient, private MessageStreamOwner {
 public:
   using Call = ClientCall< velo::rpc::v1::PbrCountersWatchResponse >;
   /// What is written to clients: long keys once, or with every record.
   enum class Form { compact, alwaysLongKeys };

   PbrStream( PbrFanout & fanout, WatchingClients & clients, const StreamOptions & options,
              Oru::Clock & clock, Form form );
   ~PbrStream() override;

   const StreamId & id() const { return id_; }

   /// Begins: `reset` tells the client to forget what it knew.
   void begin( PbrCall & call, bool reset );

   /// Whether a client who has seen `sequence` can go on with this stream in `form`.
   bool canResume( std::uint64_t sequence, Form form ) const;
   /// Goes on behind `sequence`. Only if it `canResume` and has no call.
   void resume( PbrCall & call, std::uint64_t sequence );

   /// Ends the call, if there is one, in favour of another.
   void takenOver() { call_.takenOver(); }

   /// Since when it has no call; nothing if it has one.
   std::optional< Call::Time > awaySince() const { return call_.awaySince(); }

   /// Closes a call that has taken nothing for too long.
   void closeIfStuck() { call_.closeIfStuck( "come back with the token to go on" ); }
   /// Closes the call once nothing is left to tell, neither here nor in what the library has yet to
   /// deliver: looks at once, when the transport has room again, and when called again. Nothing
   /// more is to be begun or resumed.
   void closeWhenTold();
   /// Closes the call, whatever there is to tell.
   void closeNow() { call_.closeNow(); }

   bool ready() const override;
   void compose( Oru::Task & task ) override;

   ClientReport report() const override;

 private:
   enum class Opening { done, snapshot, resumed, reset };

   void writable() override;
   void ended() override { call_.over(); }

   void attach( PbrCall & call, Opening opening );
   /// Between two batches, once the client knows every class. Changes that never pause do not put
   /// it off.
   bool inSyncIsDue() const {
      return !inSyncAt_ && !keys_.inBatch() && ( knowsAll_ || !keys_.hasNews() ) &&
             fanout_.complete();
   }
   void writeOpened();
   void writeBatch( Oru::Task & task );
   std::size_t append( velo::rpc::v1::PbrCountersWatchResponse_Batch & batch,
                       const PbrNews & news );
   void write( std::size_t records = 0 );
   void closeIfTold();

   PbrFanout & fanout_;
   WatchingClients & clients_;
   const StreamOptions & options_;
   const Form form_;
   const StreamId id_ = newStreamId();
   const WatchingClients::Id client_;

   Call call_;
   Opening opening_ = Opening::done;
   std::uint64_t inSyncAt_ = 0; ///< The message that said in_sync; 0: none has.
   /// The batch in hand began when everything was there to be told, and so did one that has ended.
   bool batchOfAll_ = false;
   bool knowsAll_ = false;
   UndoLog undo_;
   bool closing_ = false;
};

} // namespace VeloAgent
