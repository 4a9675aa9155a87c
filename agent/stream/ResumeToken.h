/// What a client keeps to come back with: which stream, and the last message that it has taken in.
///
/// Opaque to clients. The stream's identity is random and large enough that nobody guesses another
/// client's, and that no other run of the agent has had the same.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace VeloAgent {

/// 128 bits.
using StreamId = std::array< std::uint64_t, 2 >;

/// One that nobody had before.
StreamId newStreamId();

struct ResumeToken {
   StreamId stream;
   std::uint64_t sequence = 0;

   std::string bytes() const;
   /// Nothing if `bytes` were made by somebody else.
   static std::optional< ResumeToken > from( std::string_view bytes );
};

} // namespace VeloAgent
