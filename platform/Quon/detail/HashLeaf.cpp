#include "Quon/detail/HashLeaf.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Quon::detail {

namespace {

constexpr std::size_t kCacheLine = 64;

/// Lines stand at the start of cache lines, except in the leaves of small collections.
std::align_val_t alignmentFor( unsigned room ) {
   return std::align_val_t{ room > 1 ? kCacheLine : alignof( HashLine ) };
}

} // namespace

HashLeaf::Ptr HashLeaf::create( unsigned depth, unsigned bits, unsigned room ) {
   const auto alignment = static_cast< std::size_t >( alignmentFor( room ) );
   const std::size_t head =
      std::max( sizeof( HashLeaf ), offsetof( HashLeaf, slots ) + ( std::size_t{ 1 } << bits ) );
   const std::size_t linesAt = ( head + alignment - 1 ) & ~( alignment - 1 );
   void * const memory =
      ::operator new( linesAt + room * sizeof( HashLine ), alignmentFor( room ) );
   HashLeaf * const leaf = new ( memory ) HashLeaf;
   leaf->lines = reinterpret_cast< HashLine * >( static_cast< char * >( memory ) + linesAt );
   leaf->depth = static_cast< std::uint8_t >( depth );
   leaf->bitsAre( bits );
   leaf->count = 0;
   leaf->room = static_cast< std::uint16_t >( room );
   leaf->roomIs( nullptr, 0, 0 );
   return Ptr( leaf );
}

void HashLeaf::bitsAre( unsigned n ) {
   bits = static_cast< std::uint8_t >( n );
   shift = static_cast< std::uint8_t >( std::min( 64u - depth - n, 63u ) );
   lastSlot = static_cast< std::uint8_t >( ( 1u << n ) - 1 );
}

void HashLeaf::destroy( HashLeaf * leaf ) {
   if ( leaf->room != 0 ) { ::operator delete( leaf, alignmentFor( leaf->room ) ); }
}

/// Takes over the lines of a range of `from`'s slots, in order; each slot becomes `scale` slots.
void HashLeaf::append( const HashLeaf & from, unsigned first, unsigned end, unsigned scale ) {
   unsigned to = 0;
   if ( count != 0 ) { to = 1u << ( bits - 1 ); } // the other half is there already
   for ( unsigned slot = first; slot != end; ) {
      const HashLine & line = from.lines[from.slots[slot]];
      const unsigned width = from.widthOf( line );
      new ( lines + count ) HashLine( line );
      const unsigned wide = width * scale;
      std::memset( slots + to, count++, wide );
      to += wide;
      slot += width;
   }
}

HashLeaf::Ptr HashLeaf::first() {
   Ptr leaf = create( 0, 0, 1 );
   new ( leaf->lines ) HashLine;
   leaf->slots[0] = 0;
   leaf->count = 1;
   return leaf;
}

HashLeaf::Ptr HashLeaf::remade( const HashLeaf & leaf, unsigned bits, unsigned room ) {
   Ptr made = create( leaf.depth, bits, room );
   made->append( leaf, 0, 1u << leaf.bits, 1u << ( bits - leaf.bits ) );
   return made;
}

HashLeaf::Ptr HashLeaf::half( const HashLeaf & leaf, bool one ) {
   const unsigned end = 1u << leaf.bits;
   const unsigned first = one ? end / 2 : 0;
   unsigned lines = 0;
   for ( unsigned slot = first; slot != first + end / 2; ++lines ) {
      slot += leaf.widthOf( leaf.lines[leaf.slots[slot]] );
   }
   Ptr made = create( leaf.depth + 1u, leaf.bits - 1u, 2 * lines );
   made->append( leaf, first, first + end / 2, 1 );
   return made;
}

HashLeaf::Ptr HashLeaf::whole( const HashLeaf & zero, const HashLeaf & one ) {
   const unsigned bits = std::max( zero.bits, one.bits ) + 1u;
   Ptr made = create( zero.depth - 1u, bits, zero.count + one.count );
   for ( const HashLeaf * const leaf : { &zero, &one } ) {
      made->append( *leaf, 0, 1u << leaf->bits, 1u << ( bits - 1 - leaf->bits ) );
   }
   return made;
}

void HashLeaf::roomIs( void * newElements, unsigned newCapacity, unsigned newSize ) {
   elements = newElements;
   size = static_cast< std::uint16_t >( newSize );
   capacity = static_cast< std::uint16_t >( newCapacity );
   few = static_cast< std::uint16_t >( newCapacity / 8 );
   unused = size;
   gap = kNoPlace;
}

void HashLeaf::roomIsOf( const HashLeaf & other ) {
   elements = other.elements;
   size = other.size;
   capacity = other.capacity;
   few = other.few;
   unused = other.unused;
   gap = other.gap;
}

HashLine & HashLeaf::divide( std::uint64_t hash ) {
   HashLine & line = lineOf( hash );
   const std::size_t first = slotOf( hash ) & ~( std::size_t{ widthOf( line ) } - 1 );
   ++line.depth;
   const unsigned half = widthOf( line );
   HashLine * const other = new ( lines + count ) HashLine;
   other->depth = line.depth;
   other->elements = elements;
   std::memset( slots + first + half, count++, half );
   return *other;
}

void HashLeaf::onlyFirst( unsigned n ) {
   unsigned deepest = depth;
   for ( unsigned i = 0; i != n; ++i ) {
      deepest = std::max< unsigned >( deepest, lines[i].depth );
   }
   bitsAre( deepest - depth );
   count = static_cast< std::uint16_t >( n );
   std::uint8_t * to = slots;
   for ( unsigned i = 0; i != n; ++i ) {
      const unsigned width = widthOf( lines[i] );
      std::memset( to, static_cast< int >( i ), width );
      to += width;
   }
}

} // namespace Quon::detail
