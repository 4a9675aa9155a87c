#pragma once

#include <cstdint>

#include "Lumo/Hash.h"
#include "Lumo/String.h"

namespace Quon {

/// The hash of a value of several fields: begun with a seed, fed field by field.
class HashState {
 public:
   explicit HashState( std::uint64_t seed ) : state_( seed ^ 0x9e3779b97f4a7c15 ) {}

   void mix( std::uint64_t word ) {
      state_ = Lumo::Impl::foldedMultiply( state_ ^ word, 0xd6e8feb86659fd93 );
   }

   /// Its bytes, by way of the hash that the string keeps. O(1).
   void mix( const Lumo::String & text ) { mix( text.hash() ); }

   std::uint64_t result() const { return state_; }

 private:
   std::uint64_t state_;
};

} // namespace Quon
