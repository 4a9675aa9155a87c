#include "agent/rpc/ListeningSockets.h"

#include "agent/rpc/UnixSocketAddress.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>

namespace VeloAgent {

namespace {

constexpr int kBacklog = 1024;
constexpr mode_t kSocketMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP;

[[noreturn]] void fail( const char * doing, int error ) {
   throw std::runtime_error( fmt::format( "{}: {}", doing, std::strerror( error ) ) );
}

/// None, with errno, where the machine does not speak that family.
FileDescriptor newSocket( int family ) {
   return FileDescriptor( ::socket( family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) );
}

void switchOn( const FileDescriptor & socket, int level, int option ) {
   const int on = 1;
   ::setsockopt( *socket, level, option, &on, sizeof( on ) );
}

std::string whyNotBound( int error ) {
   switch ( error ) {
   case EADDRINUSE:
      return "the port is taken; stop who has it, or choose another";
   case EADDRNOTAVAIL:
      return "this machine has no such address";
   case EACCES:
      return "ports below 1024 need a privilege; choose a higher one";
   default:
      return std::strerror( error );
   }
}

struct FreeAddresses {
   void operator()( addrinfo * list ) const { ::freeaddrinfo( list ); }
};
using Addresses = std::unique_ptr< addrinfo, FreeAddresses >;

Addresses addressesOf( const std::string & host ) {
   addrinfo hints = {};
   hints.ai_family = AF_UNSPEC;
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = AI_PASSIVE;
   addrinfo * found = nullptr;
   const int error = ::getaddrinfo( host.c_str(), nullptr, &hints, &found );
   if ( error != 0 ) {
      throw std::runtime_error( fmt::format( "{}: {}", host, ::gai_strerror( error ) ) );
   }
   return Addresses( found );
}

/// A copy of an address, with a port.
struct TcpSocketAddress {
   TcpSocketAddress( const addrinfo & from, std::uint16_t port ) : size( from.ai_addrlen ) {
      std::memcpy( &storage, from.ai_addr, from.ai_addrlen );
      // The port is at the same place in both.
      static_assert( offsetof( sockaddr_in, sin_port ) == offsetof( sockaddr_in6, sin6_port ) );
      reinterpret_cast< sockaddr_in * >( &storage )->sin_port = htons( port );
   }

   sockaddr * get() { return reinterpret_cast< sockaddr * >( &storage ); }

   bool isLoopback() const {
      if ( storage.ss_family == AF_INET6 ) {
         const auto & address = reinterpret_cast< const sockaddr_in6 & >( storage ).sin6_addr;
         if ( IN6_IS_ADDR_V4MAPPED( &address ) ) { return address.s6_addr[12] == IN_LOOPBACKNET; }
         return IN6_IS_ADDR_LOOPBACK( &address );
      }
      const auto & address = reinterpret_cast< const sockaddr_in & >( storage ).sin_addr;
      return ntohl( address.s_addr ) >> 24 == IN_LOOPBACKNET;
   }

   sockaddr_storage storage = {};
   socklen_t size;
};

std::uint16_t portOf( const FileDescriptor & socket ) {
   sockaddr_storage bound = {};
   socklen_t size = sizeof( bound );
   ::getsockname( *socket, reinterpret_cast< sockaddr * >( &bound ), &size );
   return ntohs( reinterpret_cast< const sockaddr_in & >( bound ).sin_port );
}

} // namespace

ListeningSockets::ListeningSockets( const ListenAddress & address ) try {
   std::visit( [this]( const auto & where ) { listenAt( where ); }, address );
} catch ( const std::runtime_error & error ) {
   throw std::runtime_error(
      fmt::format( "cannot listen at {}: {}", textOf( address ), error.what() ) );
}

/// The mode is right before the first client can connect.
void ListeningSockets::listenAt( const UnixAddress & address ) {
   path_ = std::make_unique< SocketPath >( address.path );
   FileDescriptor socket = newSocket( AF_UNIX );
   if ( !socket ) { fail( "socket", errno ); }
   const UnixSocketAddress bound( address.path );
   if ( ::bind( *socket, bound.get(), bound.size() ) != 0 ) { fail( "bind", errno ); }
   if ( ::chmod( address.path.c_str(), kSocketMode ) != 0 ) { fail( "chmod", errno ); }
   if ( ::listen( *socket, kBacklog ) != 0 ) { fail( "listen", errno ); }
   sockets_.push_back( std::move( socket ) );
}

void ListeningSockets::listenAt( const TcpAddress & address ) {
   port_ = address.port;
   int lastError = EADDRNOTAVAIL;
   const Addresses addresses = addressesOf( address.host );
   for ( const addrinfo * each = addresses.get(); each; each = each->ai_next ) {
      TcpSocketAddress bound( *each, port_ );
      FileDescriptor socket = newSocket( each->ai_family );
      if ( !socket ) {
         lastError = errno;
         continue;
      }
      switchOn( socket, SOL_SOCKET, SO_REUSEADDR );
      if ( each->ai_family == AF_INET6 ) { switchOn( socket, IPPROTO_IPV6, IPV6_V6ONLY ); }
      if ( ::bind( *socket, bound.get(), bound.size ) != 0 || ::listen( *socket, kBacklog ) != 0 ) {
         lastError = errno;
         // A host's name may stand for more addresses than this machine has.
         if ( lastError == EADDRNOTAVAIL ) { continue; }
         throw std::runtime_error( whyNotBound( lastError ) );
      }
      port_ = portOf( socket );
      beyondLoopback_ |= !bound.isLoopback();
      sockets_.push_back( std::move( socket ) );
   }
   if ( sockets_.empty() ) { throw std::runtime_error( whyNotBound( lastError ) ); }
}

} // namespace VeloAgent
