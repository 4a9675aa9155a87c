#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

#include "Lumo/Export.h"
#include "Quon/detail/HashLine.h"

namespace Quon::detail {

/// Up to 1024 elements in one room, the lines that tell where each is, and which line is for which
/// hash.
///
///    bits 3      slots, by the hash bits behind `depth`       lines, some 60
///                │ 0 │ 0 │ 1 │ 2 │ 3 │ 3 │ 3 │ 3 │            │ 00x │ 010 │ 011 │ 1xx │
///
/// A line fills all the slots whose hashes it stands for, so that dividing it rewrites a few slots.
/// What every look-up goes through lies close together, apart from the elements. If each line had
/// memory of its own for its elements, the heap would be asked twenty times as often, and giving
/// back would take long: an allocator sorts what it was given all at once, in whichever operation
/// asks next.
///
/// A leaf is made for a number of lines and of slots. When it needs more, or much less, another one
/// takes its place, which puts the lines in order: new ones are behind the others until then. Owns
/// neither the room nor what is in it: these are the store's, who knows their type.
///
/// Invariant  every line that is no tree has its entries' places in `elements`
struct alignas( 16 ) HashLeaf {
   static constexpr unsigned kMaxBits = 8;
   static constexpr std::uint16_t kNoPlace = 0xffff;
   /// Two leaves may become one when together they have no more lines than this.
   static constexpr unsigned kMaxWhole = 160;

   struct Free {
      void operator()( HashLeaf * leaf ) const { destroy( leaf ); }
   };
   using Ptr = std::unique_ptr< HashLeaf, Free >;

   HashLine * lines;
   void * elements;       ///< Room for `capacity` elements.
   std::uint8_t depth;    ///< Leading hash bits that all its elements share.
   std::uint8_t bits;     ///< There are 1 << bits slots.
   std::uint8_t shift;    ///< Hash bits behind those that choose the slot; 63 if none choose.
   std::uint8_t lastSlot; ///< ( 1 << bits ) - 1
   std::uint16_t count;   ///< Lines.
   std::uint16_t room;    ///< Lines it was made for.
   std::uint16_t size;    ///< Elements in `elements`.
   std::uint16_t capacity;
   std::uint16_t few;    ///< So many elements are too few for so much room.
   std::uint16_t unused; ///< Places from here on were never taken.
   std::uint16_t gap;    ///< A place that is free again, and names the next such; or kNoPlace.
   std::uint8_t slots[14];

   /// Harmless on the leaf that all empty collections share.
   VELO_PLATFORM_EXPORT static void destroy( HashLeaf * leaf );

   /// One empty line for all hashes.
   VELO_PLATFORM_EXPORT static Ptr first();
   /// The same lines, now in order, with room for so many, and with this number of bits, not less
   /// than it has.
   VELO_PLATFORM_EXPORT static Ptr remade( const HashLeaf & leaf, unsigned bits, unsigned room );
   /// The lines for which the bit behind the leaf's depth is 0, or 1. There are two lines at least.
   VELO_PLATFORM_EXPORT static Ptr half( const HashLeaf & leaf, bool one );
   /// Whether two leaves are little together.
   static bool canBeWhole( const HashLeaf & one, const HashLeaf & other ) {
      return one.count + other.count <= static_cast< int >( kMaxWhole ) &&
             std::max( one.bits, other.bits ) < kMaxBits;
   }
   /// What two halves were, or might have been.
   VELO_PLATFORM_EXPORT static Ptr whole( const HashLeaf & zero, const HashLeaf & one );

   bool isFull() const { return unused == capacity && gap == kNoPlace; }
   /// The elements are in this room now, in its first places.
   VELO_PLATFORM_EXPORT void roomIs( void * newElements, unsigned newCapacity, unsigned newSize );
   /// The elements stay where they are while this leaf takes the place of `other`.
   VELO_PLATFORM_EXPORT void roomIsOf( const HashLeaf & other );

   HashLine & lineOf( std::uint64_t hash ) const { return lines[slots[slotOf( hash )]]; }

   unsigned widthOf( const HashLine & line ) const { return 1u << ( bits - line.depth + depth ); }

   /// The line for `hash` is from now on for the hashes whose next bit is 0. Returns a new line for
   /// the others. There must be room, and the line must be wide enough.
   VELO_PLATFORM_EXPORT HashLine & divide( std::uint64_t hash );
   /// Only the first `n` lines remain. Together they stand for everything, in order, each for as
   /// many hashes as its depth says.
   VELO_PLATFORM_EXPORT void onlyFirst( unsigned n );

 private:
   std::size_t slotOf( std::uint64_t hash ) const { return hash >> shift & lastSlot; }
   void bitsAre( unsigned n );
   static Ptr create( unsigned depth, unsigned bits, unsigned room );
   void append( const HashLeaf & from, unsigned first, unsigned end, unsigned scale );
};

} // namespace Quon::detail
