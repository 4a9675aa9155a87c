/// Where clients come in: accepts connections, so many at a time, and hands them on.
///
///    listening sockets ──accept──► fewer than allowed? ──yes──► handOver( fd )
///                                        │ no                       ╎ the transport's from now on
///                                        ▼                          ╎
///                                     closed                  hung up: one less
///
/// The transport owns what it was handed. Of each connection a second descriptor is kept, to be
/// told when it was hung up, by whichever side, and to hang up at the end.
///
/// Owner      the server
/// Thread     has one of its own, which calls `handOver`; the counts may be read by any
/// Invariant  no more than `most` connections are open, give or take one that is just going

#pragma once

#include "agent/FileDescriptor.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <thread>
#include <vector>

namespace VeloAgent {

class ConnectionGate {
 public:
   /// Gets the listening socket and the connection, which is its own from then on.
   using HandOver = std::function< void( int listener, int connection ) >;

   /// Listens at `sockets`, which stay open until close(), and lets `most` in. Throws
   /// std::system_error.
   ConnectionGate( const std::vector< FileDescriptor > & sockets, std::size_t most,
                   HandOver handOver );
   ~ConnectionGate() { close(); }
   ConnectionGate( const ConnectionGate & ) = delete;
   ConnectionGate & operator=( const ConnectionGate & ) = delete;

   /// Lets nobody in any more; those inside stay. Harmless when repeated.
   void close();

   /// Hangs up on those inside. Only once closed.
   void hangUp();

   std::size_t open() const { return open_; }
   std::uint64_t accepted() const { return accepted_; }
   /// Those that were one too many.
   std::uint64_t refused() const { return refused_; }

 private:
   void run();
   void acceptFrom( int listener );
   void admit( int listener, FileDescriptor connection );
   void forget( int second );
   bool watch( int fd, std::uint32_t events );

   const std::size_t most_;
   const HandOver handOver_;
   FileDescriptor wakeUp_;
   FileDescriptor poll_;
   std::map< int, FileDescriptor >
      watched_; ///< The second descriptors; the thread's while it runs.
   std::atomic< std::size_t > open_ = 0;
   std::atomic< std::uint64_t > accepted_ = 0;
   std::atomic< std::uint64_t > refused_ = 0;
   std::thread thread_;
};

} // namespace VeloAgent
