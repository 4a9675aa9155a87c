/// The path of a Unix socket as the kernel wants it.

#pragma once

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace VeloAgent {

class UnixSocketAddress {
 public:
   static constexpr std::size_t kLongestPath = sizeof( sockaddr_un::sun_path ) - 1;

   /// `path` is not longer than the longest.
   explicit UnixSocketAddress( const std::string & path ) {
      address_.sun_family = AF_UNIX;
      std::memcpy( address_.sun_path, path.c_str(), path.size() + 1 );
   }

   const sockaddr * get() const { return reinterpret_cast< const sockaddr * >( &address_ ); }
   static constexpr socklen_t size() { return sizeof( sockaddr_un ); }

 private:
   sockaddr_un address_ = {};
};

} // namespace VeloAgent
