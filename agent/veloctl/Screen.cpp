#include "agent/veloctl/Screen.h"

#include <algorithm>
#include <ostream>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace VeloCtl {

namespace {

constexpr const char * kClearAll = "\x1b[2J";
constexpr const char * kToTheTop = "\x1b[H";
constexpr const char * kClearLine = "\x1b[K\n";
constexpr const char * kClearBelow = "\x1b[J";

} // namespace

ScreenSize terminalSize() {
   winsize size{};
   if ( ::ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) != 0 || size.ws_row == 0 || size.ws_col == 0 ) {
      return {};
   }
   return { size.ws_row, size.ws_col };
}

Screen::Screen( std::ostream & out, std::function< ScreenSize() > size )
   : out_( out ), size_( std::move( size ) ) {}

void Screen::show( const std::vector< std::string > & lines ) {
   const ScreenSize room = size();
   if ( !std::exchange( drawn_, true ) ) { out_ << kClearAll; }
   out_ << kToTheTop;
   // The last row stays free: the cursor waits there.
   const std::size_t rows = std::min( lines.size(), room.rows - 1 );
   for ( std::size_t i = 0; i < rows; ++i ) {
      out_ << lines[i].substr( 0, room.columns ) << kClearLine;
   }
   out_ << kClearBelow << std::flush;
}

} // namespace VeloCtl
