/// What the streams to clients may cost, and how long they are waited for.

#pragma once

#include <chrono>
#include <cstddef>

namespace VeloAgent {

struct StreamOptions {
   /// A stream that ended can be resumed for so long.
   std::chrono::milliseconds resumeTime{ 60'000 };
   /// A client that takes nothing of what was sent for so long is closed.
   std::chrono::milliseconds stallTime{ 30'000 };
   /// At shutdown the clients have so long to take what is pending.
   std::chrono::milliseconds drainTime{ 5'000 };
   /// How many records a client may come back behind, at eight bytes each.
   std::size_t undoRecords = 65'536;
   /// A message is complete when it has so many records, or so many bytes of names.
   std::size_t recordsPerMessage = 4'000;
   std::size_t namesPerMessage = 262'144;
   /// Streams of clients, those included that may still be resumed.
   std::size_t mostClients = 256;
};

} // namespace VeloAgent
