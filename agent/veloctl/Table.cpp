#include "agent/veloctl/Table.h"

#include <algorithm>
#include <fmt/format.h>
#include <ostream>
#include <utility>

namespace VeloCtl {

Table::Table( std::initializer_list< std::string > titles ) {
   std::vector< std::string > cells;
   for ( const std::string & title : titles ) {
      right_.push_back( title.starts_with( '>' ) );
      cells.push_back( title.substr( right_.back() ? 1 : 0 ) );
   }
   rows_.push_back( std::move( cells ) );
}

void Table::row( std::vector< std::string > cells ) { rows_.push_back( std::move( cells ) ); }

std::vector< std::string > Table::lines() const {
   std::vector< std::size_t > widths( right_.size() );
   for ( const auto & row : rows_ ) {
      for ( std::size_t c = 0; c < row.size(); ++c ) {
         widths[c] = std::max( widths[c], row[c].size() );
      }
   }
   std::vector< std::string > lines;
   for ( const auto & row : rows_ ) {
      std::string line;
      for ( std::size_t c = 0; c < row.size(); ++c ) {
         line += right_[c] ? fmt::format( "{:>{}}  ", row[c], widths[c] )
                           : fmt::format( "{:<{}}  ", row[c], widths[c] );
      }
      line.erase( line.find_last_not_of( ' ' ) + 1 );
      lines.push_back( std::move( line ) );
   }
   return lines;
}

void Table::print( std::ostream & out ) const {
   for ( const std::string & line : lines() ) { out << line << '\n'; }
}

} // namespace VeloCtl
