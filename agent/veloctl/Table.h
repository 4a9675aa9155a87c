/// A table for people: a line of titles, then one line per row, columns aligned.

#pragma once

#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

namespace VeloCtl {

class Table {
 public:
   /// A title that begins with '>' makes a column of numbers: it leans to the right.
   Table( std::initializer_list< std::string > titles );

   /// As many as there are titles, fit to be printed (agent/Printable.h).
   void row( std::vector< std::string > cells );

   std::vector< std::string > lines() const;
   void print( std::ostream & out ) const;

 private:
   std::vector< bool > right_;
   std::vector< std::vector< std::string > > rows_;
};

} // namespace VeloCtl
