#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Quon/Text.h"

namespace Plink::Fib {

/// What a FEC leads to. Only the kinds that are told apart here have a name.
enum class AdjType : std::uint8_t { nexthopGroup = 3 };

/// There are this many kinds of adjacencies, numbered from 0.
constexpr std::uint64_t adjTypeMax() { return 27; }
/// The lowest bit of the kind within a FEC.
constexpr unsigned adjTypePos() { return 56; }

/// Names a forwarding equivalence class: where packets go. A value of one word:
///
///    | adjacency type, 8 bits | what it is an adjacency to, 56 bits |
///
/// Of a next-hop-group adjacency the lower 32 bits are the group's id and the rest are 0.
class VELO_PLATFORM_EXPORT FecId {
 public:
   FecId() = default;
   explicit FecId( std::uint64_t value ) : value_( value ) {}

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit FecId( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   std::uint64_t value() const { return value_; }

   /// The kind of adjacency. Fatal if there is no such kind.
   AdjType adjType() const;

   /// The group of a next-hop-group adjacency; meaningless for others.
   static std::uint32_t fecIdToNexthopGroupId( const FecId & fecId ) {
      return static_cast< std::uint32_t >( fecId.value_ );
   }
   /// The next-hop-group adjacency to that group.
   static FecId nexthopGroupIdToFecId( std::uint32_t nexthopGroupId ) {
      return FecId( std::uint64_t{ static_cast< std::uint8_t >( AdjType::nexthopGroup ) }
                       << adjTypePos() |
                    nexthopGroupId );
   }

   /// Collections mix it with their seed.
   std::uint64_t hash() const { return value_; }

   friend auto operator<=>( const FecId &, const FecId & ) = default;

   static constexpr std::string_view kTypeName = "Plink::Fib::FecId";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "value", &FecId::value_ ) );
   }

 private:
   std::uint64_t value_ = 0;
};

VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const FecId & fecId );

} // namespace Plink::Fib
