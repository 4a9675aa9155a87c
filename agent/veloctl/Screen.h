/// A terminal that shows one page, drawn anew again and again.

#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace VeloCtl {

struct ScreenSize {
   std::size_t rows = 24;
   std::size_t columns = 80;
};

/// Of the terminal that standard output is.
ScreenSize terminalSize();

class Screen {
 public:
   /// `out` outlives this. `size` is asked before every drawing.
   Screen( std::ostream & out, std::function< ScreenSize() > size );

   ScreenSize size() const { return size_(); }

   /// Shows as much of `lines` as there is room for.
   void show( const std::vector< std::string > & lines );

 private:
   std::ostream & out_;
   const std::function< ScreenSize() > size_;
   bool drawn_ = false;
};

} // namespace VeloCtl
