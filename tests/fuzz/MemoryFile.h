#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace Fuzz {

/// A file that exists in memory only, for what is read from a path.
class MemoryFile {
 public:
   MemoryFile() : file_( ::memfd_create( "fuzz", MFD_CLOEXEC ) ) { check( file_ >= 0 ); }
   ~MemoryFile() { ::close( file_ ); }
   MemoryFile( const MemoryFile & ) = delete;
   MemoryFile & operator=( const MemoryFile & ) = delete;

   void contentsAre( std::string_view bytes ) {
      check( ::ftruncate( file_, 0 ) == 0 );
      check( ::pwrite( file_, bytes.data(), bytes.size(), 0 ) ==
             static_cast< ssize_t >( bytes.size() ) );
   }

   std::string path() const { return "/proc/self/fd/" + std::to_string( file_ ); }

 private:
   static void check( bool done ) {
      if ( !done ) { throw std::system_error( errno, std::generic_category(), "memory file" ); }
   }

   const int file_;
};

} // namespace Fuzz
