#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "Quon/Text.h"

namespace PolicyMap::Counters {

/// What the hardware counted for one class.
class CountData {
 public:
   CountData() = default;
   CountData( std::uint64_t packets, std::uint64_t bytes ) : packets_( packets ), bytes_( bytes ) {}
   explicit CountData( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   std::uint64_t packets() const { return packets_; }
   std::uint64_t bytes() const { return bytes_; }

   friend bool operator==( const CountData &, const CountData & ) = default;
   friend std::ostream & operator<<( std::ostream & os, const CountData & data ) {
      return Quon::printText( os, data );
   }

   static constexpr std::string_view kTypeName = "PolicyMap::Counters::CountData";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "packets", &CountData::packets_ ),
                              Quon::attribute( "bytes", &CountData::bytes_ ) );
   }

 private:
   std::uint64_t packets_ = 0;
   std::uint64_t bytes_ = 0;
};

} // namespace PolicyMap::Counters
