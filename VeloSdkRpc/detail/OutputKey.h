#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "Quon/Quon.h"

namespace VeloSdkRpc::detail {

/// The key under which an output of a state machine remembers what it has written: a short key that
/// is always valid when the machine made it. `Output` gives the type its name.
template< class Output >
class OutputKey {
 public:
   OutputKey() = default;
   explicit OutputKey( std::uint64_t k0 ) : k0_( k0 ) { validate(); }

   /// Reads the text form at the cursor. Errors: `Quon::ParseError`.
   explicit OutputKey( Quon::CharRange & text ) { Quon::parseText( text, *this ); }

   /// The value that the text form `text` stands for, all of it. Errors: `Quon::ParseError`.
   static OutputKey strepToValue( std::string_view text ) {
      Quon::CharRange cursor( text );
      OutputKey key( cursor );
      cursor.expectEnd();
      return key;
   }

   std::uint64_t k0() const { return k0_; }
   bool k0Valid() const { return k0Valid_; }
   void validate() { k0Valid_ = true; }

   std::uint64_t hash( unsigned seed ) const {
      Quon::HashState state( seed );
      state.mix( k0_ );
      state.mix( std::uint64_t{ k0Valid_ } );
      return state.result();
   }

   static bool isEq( const void * a, const void * b ) {
      return *static_cast< const OutputKey * >( a ) == *static_cast< const OutputKey * >( b );
   }
   friend bool operator==( const OutputKey &, const OutputKey & ) = default;
   friend std::strong_ordering operator<=>( const OutputKey &, const OutputKey & ) = default;

   friend std::ostream & operator<<( std::ostream & os, const OutputKey & key ) {
      return Quon::printText( os, key );
   }

   static constexpr std::string_view kTypeName = Output::kKeyTypeName;
   static constexpr auto attributes() {
      return std::make_tuple( Quon::attribute( "k0", &OutputKey::k0_ ),
                              Quon::attribute( "k0Valid", &OutputKey::k0Valid_ ) );
   }

 private:
   std::uint64_t k0_ = 0;
   bool k0Valid_ = false;
};

} // namespace VeloSdkRpc::detail
