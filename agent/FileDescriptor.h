/// A file descriptor that is closed when its owner goes.

#pragma once

#include <unistd.h>
#include <utility>

namespace VeloAgent {

class FileDescriptor {
 public:
   FileDescriptor() = default;
   /// Takes `fd` over; -1: none.
   explicit FileDescriptor( int fd ) : fd_( fd ) {}
   ~FileDescriptor() { close(); }
   FileDescriptor( FileDescriptor && other ) noexcept : fd_( other.release() ) {}
   FileDescriptor & operator=( FileDescriptor && other ) noexcept {
      std::swap( fd_, other.fd_ );
      return *this;
   }

   explicit operator bool() const { return fd_ >= 0; }
   int operator*() const { return fd_; }

   /// Hands the descriptor to the caller.
   int release() { return std::exchange( fd_, -1 ); }

   void close() {
      if ( fd_ >= 0 ) { ::close( release() ); }
   }

 private:
   int fd_ = -1;
};

} // namespace VeloAgent
