/// A file with a certain content, for as long as a test needs it.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

namespace VeloCtl {

class TemporaryFile {
 public:
   explicit TemporaryFile( std::string_view content )
      : path_( ( std::filesystem::temp_directory_path() / "veloctl-XXXXXX" ).string() ) {
      const int fd = ::mkstemp( path_.data() );
      const auto size = static_cast< ssize_t >( content.size() );
      if ( fd < 0 || ::write( fd, content.data(), content.size() ) != size ) {
         throw std::runtime_error( "no file for a test" );
      }
      ::close( fd );
   }
   ~TemporaryFile() { ::unlink( path_.c_str() ); }
   TemporaryFile( const TemporaryFile & ) = delete;
   TemporaryFile & operator=( const TemporaryFile & ) = delete;

   const std::string & path() const { return path_; }

 private:
   std::string path_;
};

} // namespace VeloCtl
