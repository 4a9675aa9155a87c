#include "agent/veloctl/Files.h"

#include "agent/veloctl/Failures.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace VeloCtl {

namespace {

[[noreturn]] void cannotRead( const std::string & path ) {
   throw WrongUse( "cannot read " + path + ": " + std::strerror( errno ) );
}

struct Close {
   void operator()( std::FILE * file ) const {
      if ( file != stdin ) { std::fclose( file ); }
   }
};

} // namespace

std::string contentOf( const std::string & path ) {
   const std::unique_ptr< std::FILE, Close > file( path == "-" ? stdin
                                                               : std::fopen( path.c_str(), "rb" ) );
   if ( !file ) { cannotRead( path ); }
   std::string content;
   std::array< char, 65536 > piece{};
   while ( const std::size_t size = std::fread( piece.data(), 1, piece.size(), file.get() ) ) {
      content.append( piece.data(), size );
   }
   if ( std::ferror( file.get() ) != 0 ) { cannotRead( path ); }
   return content;
}

} // namespace VeloCtl
