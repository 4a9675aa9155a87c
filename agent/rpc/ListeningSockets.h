/// The sockets that a server listens at.
///
///    unix:PATH   one, which its owner and group may connect to (mode 0660), nobody else
///    HOST:PORT   one for each address of the host that this machine has
///
/// Owner      the server

#pragma once

#include "agent/FileDescriptor.h"
#include "agent/rpc/ListenAddress.h"
#include "agent/rpc/SocketPath.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace VeloAgent {

class ListeningSockets {
 public:
   /// Listens. Throws std::runtime_error with a text that names the address and says what would be
   /// right.
   explicit ListeningSockets( const ListenAddress & address );

   const std::vector< FileDescriptor > & sockets() const { return sockets_; }

   /// Whether machines other than this one can connect.
   bool beyondLoopback() const { return beyondLoopback_; }

   /// The TCP port; 0 for other sockets.
   std::uint16_t port() const { return port_; }

 private:
   void listenAt( const Nowhere & ) {}
   void listenAt( const UnixAddress & address );
   void listenAt( const TcpAddress & address );

   std::unique_ptr< SocketPath > path_;
   std::vector< FileDescriptor > sockets_;
   bool beyondLoopback_ = false;
   std::uint16_t port_ = 0;
};

} // namespace VeloAgent
