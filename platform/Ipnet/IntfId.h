#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "Quon/Text.h"

namespace Ipnet {

/// Identifies an interface of the switch in the state database. Every 64-bit number is one.
class IntfId {
 public:
   IntfId() = default;
   explicit IntfId( std::uint64_t value ) : value_( value ) {}
   explicit IntfId( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   std::uint64_t value() const { return value_; }

   friend bool operator==( IntfId, IntfId ) = default;
   friend std::strong_ordering operator<=>( IntfId, IntfId ) = default;
   friend std::ostream & operator<<( std::ostream & os, IntfId id ) {
      return Quon::printText( os, id );
   }

   /// The number itself, which the keyed collections mix with their seed.
   std::uint64_t hash() const { return value_; }

   static constexpr std::string_view kTypeName = "Ipnet::IntfId";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "value", &IntfId::value_ ) );
   }

 private:
   std::uint64_t value_ = 0;
};

} // namespace Ipnet
