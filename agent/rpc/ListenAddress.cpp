#include "agent/rpc/ListenAddress.h"

#include <charconv>
#include <cstdlib>
#include <fmt/format.h>
#include <unistd.h>

namespace VeloAgent {

namespace {

constexpr std::string_view kNone = "none";
constexpr std::string_view kUnix = "unix:";
constexpr const char * kSystemDirectory = "/run/velo-agent";

std::optional< std::uint16_t > portFrom( std::string_view text ) {
   std::uint16_t port = 0;
   const char * const end = text.data() + text.size();
   const auto [stop, error] = std::from_chars( text.data(), end, port );
   if ( error != std::errc() || stop != end ) { return std::nullopt; }
   return port;
}

struct TextOf {
   std::string operator()( const Nowhere & ) const { return std::string( kNone ); }
   std::string operator()( const UnixAddress & address ) const {
      return std::string( kUnix ) + address.path;
   }
   std::string operator()( const TcpAddress & address ) const {
      const bool brackets = address.host.find( ':' ) != std::string::npos;
      return fmt::format( "{}{}{}:{}", brackets ? "[" : "", address.host, brackets ? "]" : "",
                          address.port );
   }
};

} // namespace

std::optional< ListenAddress > listenAddressFrom( std::string_view text ) {
   if ( text == kNone ) { return Nowhere(); }
   if ( text.substr( 0, kUnix.size() ) == kUnix ) {
      const std::string_view path = text.substr( kUnix.size() );
      if ( path.empty() || path.find( '\0' ) != path.npos ) { return std::nullopt; }
      return UnixAddress{ std::string( path ) };
   }
   const std::size_t colon = text.rfind( ':' );
   if ( colon == text.npos ) { return std::nullopt; }
   const auto port = portFrom( text.substr( colon + 1 ) );
   std::string_view host = text.substr( 0, colon );
   if ( host.size() > 2 && host.front() == '[' && host.back() == ']' ) {
      host = host.substr( 1, host.size() - 2 );
   } else if ( host.find( ':' ) != host.npos ) {
      return std::nullopt;
   }
   if ( !port || host.empty() || host.find_first_of( "[]" ) != host.npos ) { return std::nullopt; }
   return TcpAddress{ std::string( host ), *port };
}

std::string textOf( const ListenAddress & address ) { return std::visit( TextOf(), address ); }

std::vector< std::string > defaultSockets() {
   std::vector< std::string > paths = { std::string( kSystemDirectory ) + "/agent.sock" };
   const char * const runtimeDirectory = std::getenv( "XDG_RUNTIME_DIR" );
   if ( runtimeDirectory && *runtimeDirectory != '\0' ) {
      paths.push_back( std::string( runtimeDirectory ) + "/velo-agent.sock" );
   }
   return paths;
}

ListenAddress defaultListenAddress() {
   const std::vector< std::string > paths = defaultSockets();
   if ( ::access( kSystemDirectory, W_OK | X_OK ) == 0 ) { return UnixAddress{ paths.front() }; }
   if ( paths.size() > 1 ) { return UnixAddress{ paths.back() }; }
   return Nowhere();
}

} // namespace VeloAgent
