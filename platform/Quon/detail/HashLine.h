#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "Quon/detail/MatchBytes.h"

namespace Quon::detail {

/// One cache line that says all about up to 16 elements: a tag of each, and its place in the room
/// that all elements of a leaf share.
///
///                  ┌────────┬────┬─────┬─────┬─────┬───────────────────┬──────────────────────┐
///                  │elements│live│count│depth│state│ 16 tags of 8 bits │ 16 places of 16 bits │
///                  └───┬────┴────┴─────┴─────┴─────┴───────────────────┴──────────────────────┘
///    │ e0 │ e1 │    │ e3 │ ...  up to 1024
///
/// A look-up compares all tags at once and then touches the one element it is after. Few look-ups
/// of an absent key touch an element.
///
/// Dividing, uniting and sorting lines moves entries, never elements. A deleted entry leaves a
/// hole.
struct alignas( 16 ) HashLine {
   static constexpr unsigned kEntries = 16;

   enum State : std::uint8_t { isSorted, isUnsorted, isTree };

   void * elements = nullptr; ///< The room of the leaf's elements; or the tree.
   std::uint16_t live = 0;    ///< Bit i: entry i stands for an element.
   std::uint8_t count = 0;    ///< How many bits of `live` are set; as many as can be in a tree.
   std::uint8_t depth = 0;    ///< Leading hash bits that all its elements share.
   State state = isSorted;    ///< Whether the entries are in the order of their elements.
   alignas( 16 ) std::uint8_t tags[kEntries] = {};
   std::uint16_t places[kEntries] = {};

   bool isNothing() const { return count == 0; }
   bool isFull() const { return count == kEntries; }

   /// The entries whose tag is that of `hash`, as bits. None in empty lines and trees.
   std::uint32_t candidates( std::uint64_t hash ) const {
      return entriesWithTag( tagOf( hash ) ) & live;
   }

   /// There must be room.
   void add( std::uint64_t hash, unsigned place ) { addTagged( tagOf( hash ), place ); }
   /// Takes over entry `i` of a line with the same room. There must be room.
   void take( HashLine & from, unsigned i ) {
      addTagged( from.tags[i], from.places[i] );
      from.drop( i );
   }
   /// All entries, from now on in this order, which is that of their elements.
   void orderIs( const std::array< std::uint8_t, kEntries > & order ) {
      const HashLine before = *this;
      for ( unsigned i = 0; i < count; ++i ) {
         tags[i] = before.tags[order[i]];
         places[i] = before.places[order[i]];
      }
      live = static_cast< std::uint16_t >( ( 1u << count ) - 1 );
      state = isSorted;
   }
   void drop( unsigned i ) {
      live = static_cast< std::uint16_t >( live & ~( 1u << i ) );
      --count;
   }

   /// `f` may drop the entry it is called with.
   template< class F >
   void eachLive( F f ) const {
      for ( std::uint32_t rest = live; rest != 0; rest &= rest - 1 ) {
         f( static_cast< unsigned >( std::countr_zero( rest ) ) );
      }
   }

   void becomeTree( void * tree ) {
      elements = tree;
      live = 0;
      count = kEntries;
      state = isTree;
   }
   /// No tree any more, and no element.
   void becomeNothing( void * room ) {
      const std::uint8_t sameDepth = depth;
      *this = HashLine();
      depth = sameDepth;
      elements = room;
   }

 private:
   static std::uint8_t tagOf( std::uint64_t hash ) { return static_cast< std::uint8_t >( hash ); }
   void addTagged( std::uint8_t tag, unsigned place ) {
      const auto i = static_cast< unsigned >( std::countr_one( live ) );
      live = static_cast< std::uint16_t >( live | 1u << i );
      ++count;
      tags[i] = tag;
      places[i] = static_cast< std::uint16_t >( place );
      state = isUnsorted;
   }
   std::uint32_t entriesWithTag( std::uint8_t tag ) const {
      return static_cast< std::uint32_t >( matchBytes16( tags, tag ) );
   }
};
static_assert( sizeof( HashLine ) == 64 );
static_assert( offsetof( HashLine, tags ) == 16 );

} // namespace Quon::detail
