#pragma once

#include <compare>
#include <cstdint>

#include "Ipnet/IntfId.h"
#include "Quon/Hash.h"

namespace velo {

/// Identifies an interface toward SDK clients. One-to-one with the state database's identifier:
///
///    Ipnet::IntfId ipnetId = id;  and  intf_id_t( ipnetId )
///
/// Every 64-bit number is one.
class intf_id_t {
 public:
   intf_id_t() = default;
   explicit intf_id_t( std::uint64_t value ) : value_( value ) {}
   explicit intf_id_t( Ipnet::IntfId id ) : value_( id.value() ) {}

   operator Ipnet::IntfId() const { return Ipnet::IntfId( value_ ); }
   std::uint64_t value() const { return value_; }

   friend bool operator==( intf_id_t, intf_id_t ) = default;
   friend std::strong_ordering operator<=>( intf_id_t, intf_id_t ) = default;

   /// Different identifiers have different hashes, and each 32 bits of a hash are good on their
   /// own: identifiers often differ in a few high bits only. The same in every process.
   std::uint64_t hash() const { return Quon::mix64( value_ ); }

 private:
   std::uint64_t value_ = 0;
};

} // namespace velo
