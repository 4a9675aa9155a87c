#include "agent/rpc/SocketPath.h"

#include "agent/rpc/UnixSocketAddress.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <utility>

namespace VeloAgent {

namespace {

constexpr const char * kTaken = "another server listens there; stop it, or choose another path";

std::string directoryOf( const std::string & path ) {
   const std::string directory = std::filesystem::path( path ).parent_path().string();
   return directory.empty() ? "." : directory;
}

std::string whyNoLock( const std::string & path, int error ) {
   const std::string directory = directoryOf( path );
   switch ( error ) {
   case ENOENT:
      return fmt::format( "there is no directory {}; make it first", directory );
   case ENOTDIR:
      return fmt::format( "{} is no directory", directory );
   case EACCES:
   case EPERM:
   case EROFS:
      return fmt::format( "{} may not be written by this user ({})", directory,
                          std::strerror( error ) );
   default:
      return std::strerror( error );
   }
}

/// Whether two descriptions are of the same file.
bool same( const struct stat & a, const struct stat & b ) {
   return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

const std::size_t SocketPath::kLongest = UnixSocketAddress::kLongestPath;

SocketPath::SocketPath( std::string path )
   : path_( checked( std::move( path ) ) ), lock_( path_ + ".lock" ) {
   removeWhatWasLeft();
}

SocketPath::~SocketPath() { ::unlink( path_.c_str() ); }

std::string SocketPath::checked( std::string path ) {
   if ( path.size() > kLongest ) {
      throw std::runtime_error( fmt::format(
         "the path has {} bytes, that of a socket has at most {}", path.size(), kLongest ) );
   }
   return path;
}

void SocketPath::removeWhatWasLeft() const {
   struct stat there = {};
   if ( ::lstat( path_.c_str(), &there ) != 0 ) { return; }
   if ( !S_ISSOCK( there.st_mode ) ) {
      throw std::runtime_error( "something is there that is no socket" );
   }
   const FileDescriptor probe( ::socket( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) );
   const UnixSocketAddress address( path_ );
   if ( ::connect( *probe, address.get(), address.size() ) == 0 || errno != ECONNREFUSED ) {
      throw std::runtime_error( kTaken );
   }
   ::unlink( path_.c_str() );
}

SocketPath::Lock::Lock( std::string path ) : path_( std::move( path ) ) {
   while ( !taken() ) {}
}

SocketPath::Lock::~Lock() { ::unlink( path_.c_str() ); }

/// False: what was locked is a file that its owner has just removed.
bool SocketPath::Lock::taken() {
   file_ =
      FileDescriptor( ::open( path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600 ) );
   if ( !file_ ) { throw std::runtime_error( whyNoLock( path_, errno ) ); }
   if ( ::flock( *file_, LOCK_EX | LOCK_NB ) != 0 ) { throw std::runtime_error( kTaken ); }
   struct stat held = {};
   struct stat there = {};
   return ::fstat( *file_, &held ) == 0 && ::lstat( path_.c_str(), &there ) == 0 &&
          same( held, there );
}

} // namespace VeloAgent
