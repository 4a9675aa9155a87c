#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <tuple>

#include "Lumo/Export.h"
#include "Lumo/Relocatable.h"
#include "Lumo/String.h"
#include "Quon/HashState.h"
#include "Quon/Text.h"

namespace Routing::Fib {

/// The MPLS labels that a via pushes, the top of the stack first; empty for none. A value of one
/// word: two labels live in it, deeper stacks are shared.
///
/// Invariant  every label is one that may be on the wire
class VELO_PLATFORM_EXPORT LabelStack {
 public:
   static constexpr std::uint32_t kMaxLabel = ( 1U << 20 ) - 1;
   /// Stands for "pop" between routers and is never sent.
   static constexpr std::uint32_t kImplicitNull = 3;
   /// Deeper than any forwarding hardware pushes.
   static constexpr std::size_t kMaxDepth = 16;

   LabelStack() = default;

   /// Top first. Errors: the range error for a label that is no 20-bit number or is implicit null,
   /// and for too many labels.
   explicit LabelStack( std::span< const std::uint32_t > labels );
   LabelStack( std::initializer_list< std::uint32_t > labels )
      : LabelStack( std::span( labels.begin(), labels.size() ) ) {}

   /// Reads "100/200", top first, or "" for the empty stack. Errors: the range error, also as
   /// above.
   explicit LabelStack( std::string_view text );

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit LabelStack( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   std::size_t depth() const { return bytes_.size() / kBytesPerLabel; }
   bool empty() const { return bytes_.empty(); }
   /// 0 is the top.
   std::uint32_t label( std::size_t at ) const;

   /// "100/200".
   std::string toString() const;

   friend bool operator==( const LabelStack &, const LabelStack & ) = default;
   /// Label by label from the top; a stack comes before those that it is the upper part of.
   friend std::strong_ordering operator<=>( const LabelStack & a, const LabelStack & b ) {
      return a.bytes_ <=> b.bytes_;
   }
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os,
                                                          const LabelStack & stack );

   std::uint64_t hash( unsigned seed ) const {
      Quon::HashState state( seed );
      state.mix( bytes_ );
      return state.result();
   }

   static constexpr std::string_view kTypeName = "Routing::Fib::LabelStack";
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "labels", &LabelStack::text, &LabelStack::textIs ) );
   }

   static constexpr bool kRelocatable = Lumo::isRelocatable< Lumo::String >;

 private:
   static constexpr std::size_t kBytesPerLabel = 3;

   Lumo::String text() const { return toString(); }
   void textIs( const Lumo::String & text ) { *this = LabelStack( text.view() ); }

   Lumo::String bytes_; ///< Each label in three, the highest first: ordered as the labels are.
};

} // namespace Routing::Fib
