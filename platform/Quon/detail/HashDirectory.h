#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "Lumo/Export.h"
#include "Quon/detail/HashLeaf.h"

namespace Quon::detail {

/// Finds the leaf for a hash: a radix tree over the leading hash bits, at most 12 bits per page.
///
///    root ──► page, 4 slots ──► leaf depth 1 (two slots: 0x), leaf depth 2 (10),
///                               page, 2 slots (11) ──► leaves depth 3 (110), (111)
///
/// A leaf of a page fills all the slots whose hashes it stands for, so that splitting it rewrites a
/// few slots. A page whose leaves are as deep as the page itself doubles, up to 4096 slots; beyond
/// that a slot gets a page of its own. So growing never copies more than 4096 slots at once,
/// however many elements there are, and merging leaves undoes it in the same small steps.
///
/// Owns the pages, not the leaves.
class HashDirectory {
 public:
   using Leaf = HashLeaf;
   static constexpr unsigned kMaxPageBits = 12;

   HashDirectory() : root_( refOf( emptyLeaf() ) ) {}
   HashDirectory( HashDirectory && other ) noexcept
      : root_( std::exchange( other.root_, refOf( emptyLeaf() ) ) ) {}
   HashDirectory & operator=( HashDirectory && other ) noexcept {
      std::swap( root_, other.root_ );
      return *this;
   }

   /// The leaf that all empty collections share, with one empty line. Never written.
   static Leaf * emptyLeaf() { return kEmptyLeaf; }

   [[gnu::always_inline]] Leaf * leafOf( std::uint64_t hash ) const {
      Ref ref = root_;
      if ( const unsigned bits = ref & kBitsMask ) {
         ref = pageOf( ref )->slots[hash >> ( -bits & 63 )];
         if ( ref & kBitsMask ) [[unlikely]] { ref = below( ref, hash << bits ); }
      }
      return leafAt( ref );
   }

   /// `with` takes the place of the leaf of the same depth for `hash`.
   VELO_PLATFORM_EXPORT void replace( std::uint64_t hash, Leaf * with );
   /// Two leaves take the place of the leaf for `hash`; one of them may be that leaf itself. Sets
   /// their depth, one bit more. At most 4096 slots move.
   VELO_PLATFORM_EXPORT void divide( std::uint64_t hash, Leaf * zero, Leaf * one );
   /// The leaf that differs from that of `hash` in the last bit of its depth only; null if there
   /// is none of the same depth.
   VELO_PLATFORM_EXPORT Leaf * buddyOf( std::uint64_t hash ) const;
   /// `merged`, one bit less deep, takes the place of the leaf for `hash` and of its buddy.
   VELO_PLATFORM_EXPORT void unite( std::uint64_t hash, Leaf * merged );

   /// Calls `f( leaf )` for every leaf once, in order.
   template< class F >
   void forEachLeaf( F f ) const {
      visit( root_, f );
   }
   /// Frees the pages and stands on the empty leaf again. The leaves are the caller's.
   VELO_PLATFORM_EXPORT void clear();

   bool isSingleLeaf() const { return ( root_ & kBitsMask ) == 0; }

 private:
   /// Address of a leaf (low bits 0), or of a page with the number of its bits in the low bits.
   using Ref = std::uintptr_t;
   static constexpr Ref kBitsMask = 15;

   struct alignas( 16 ) Page {
      std::uint8_t bits;
      std::uint8_t prefix; ///< Hash bits used up on the way to this page.
      std::uint16_t deep;  ///< Slots whose leaf, or page, fills this one slot only.
      Ref slots[1];        ///< 1 << bits of them.
   };
   /// A slot on the way to a leaf and the page it belongs to (null: the root).
   struct Step {
      Ref * slot;
      Page * page;
   };
   struct Path {
      Step steps[66];
      unsigned last = 0;
   };

   VELO_PLATFORM_EXPORT static Leaf * const kEmptyLeaf;

   static Page * pageOf( Ref ref ) { return reinterpret_cast< Page * >( ref & ~kBitsMask ); }
   static Ref refOf( const Leaf * leaf ) { return reinterpret_cast< Ref >( leaf ); }
   static Ref refOf( const Page * page ) { return reinterpret_cast< Ref >( page ) | page->bits; }
   static Page * newPage( unsigned bits, unsigned prefix );
   static void freePage( Page * page );
   static unsigned widthOf( const Page & page, unsigned depth ) {
      return 1u << ( page.bits - ( depth - page.prefix ) );
   }
   static Leaf * leafAt( Ref ref ) { return reinterpret_cast< Leaf * >( ref ); }
   /// The leaf below a page, for the bits of a hash that are not used up on the way to the page.
   VELO_PLATFORM_EXPORT static Ref below( Ref ref, std::uint64_t hash );
   Path pathTo( std::uint64_t hash ) const;
   static void fill( const Step & step, unsigned depth, const Leaf * leaf );
   static void makeRoom( Path & path, std::uint64_t hash );
   static void freePages( Ref ref );

   template< class F >
   static void visit( Ref ref, F & f ) {
      if ( ( ref & kBitsMask ) == 0 ) {
         f( leafAt( ref ) );
         return;
      }
      const Page & page = *pageOf( ref );
      for ( unsigned i = 0; i < 1u << page.bits; ) {
         const Ref at = page.slots[i];
         // Read before the visit: the leaf may be gone after it.
         i += ( at & kBitsMask ) ? 1 : widthOf( page, leafAt( at )->depth );
         visit( at, f );
      }
   }
   Ref root_;
};

} // namespace Quon::detail
