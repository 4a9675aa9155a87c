/// The path of a Unix socket, claimed for one server:
///
///    claim ──► lock PATH.lock ──► is PATH there? ──no──────────────────────► ours
///                 │ held                │ yes: connect
///                 ▼                     ├── refused: left behind, removed ──► ours
///               taken                   └── otherwise: taken
///
/// The lock is there so that two servers which begin at the same time do not both find a path that
/// was left behind; connecting, because a server of another kind takes no lock.
///
/// Owner      whoever listens there
/// Invariant  nobody's socket is removed but our own, and those that nobody listens at any more

#pragma once

#include "agent/FileDescriptor.h"

#include <string>

namespace VeloAgent {

class SocketPath {
 public:
   /// The longest path that a socket can have.
   static const std::size_t kLongest;

   /// Claims `path`. Throws std::runtime_error with a text that says why it cannot be used and
   /// what would be right; it does not name the path.
   explicit SocketPath( std::string path );

   /// Removes the socket and the lock.
   ~SocketPath();
   SocketPath( const SocketPath & ) = delete;
   SocketPath & operator=( const SocketPath & ) = delete;

   const std::string & path() const { return path_; }

 private:
   /// A file that is locked while it is there.
   class Lock {
    public:
      explicit Lock( std::string path );
      ~Lock();
      Lock( const Lock & ) = delete;
      Lock & operator=( const Lock & ) = delete;

    private:
      bool taken();

      const std::string path_;
      FileDescriptor file_;
   };

   static std::string checked( std::string path );
   void removeWhatWasLeft() const;

   const std::string path_;
   const Lock lock_;
};

} // namespace VeloAgent
