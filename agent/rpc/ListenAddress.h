/// Where a server listens, as people write it:
///
///    none             nowhere
///    unix:PATH        a Unix socket
///    HOST:PORT        TCP; an IPv6 address stands in brackets, port 0 is any that is free

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace VeloAgent {

struct Nowhere {
   bool operator==( const Nowhere & ) const = default;
};

struct UnixAddress {
   std::string path;

   bool operator==( const UnixAddress & ) const = default;
};

struct TcpAddress {
   std::string host;
   std::uint16_t port = 0;

   bool operator==( const TcpAddress & ) const = default;
};

using ListenAddress = std::variant< Nowhere, UnixAddress, TcpAddress >;

/// What the forms are, for whoever wrote another.
inline constexpr const char * kListenAddressForms =
   "none, unix:PATH or HOST:PORT, for example unix:/run/velo-agent/agent.sock";

/// Nothing: `text` has none of the forms.
std::optional< ListenAddress > listenAddressFrom( std::string_view text );

/// The inverse.
std::string textOf( const ListenAddress & address );

/// The sockets that an agent may listen at which was told nothing, the first choice first: that of
/// the system, and if XDG_RUNTIME_DIR names a directory, the one there.
std::vector< std::string > defaultSockets();

/// Where an agent listens that was told nothing: in /run/velo-agent if that directory is there and
/// may be written, else in the directory that XDG_RUNTIME_DIR names, else nowhere.
ListenAddress defaultListenAddress();

} // namespace VeloAgent
