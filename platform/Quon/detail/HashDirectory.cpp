#include "Quon/detail/HashDirectory.h"

#include <algorithm>
#include <new>

namespace Quon::detail {

namespace {

constinit HashLine emptyLine;
constinit HashLeaf sharedEmptyLeaf{ .lines = &emptyLine,
                                    .elements = nullptr,
                                    .depth = 0,
                                    .bits = 0,
                                    .shift = 63,
                                    .lastSlot = 0,
                                    .count = 1,
                                    .room = 0,
                                    .size = 0,
                                    .capacity = 0,
                                    .few = 0,
                                    .unused = 0,
                                    .gap = HashLeaf::kNoPlace,
                                    .slots = {} };

} // namespace

constinit HashLeaf * const HashDirectory::kEmptyLeaf = &sharedEmptyLeaf;

HashDirectory::Page * HashDirectory::newPage( unsigned bits, unsigned prefix ) {
   const std::size_t bytes = sizeof( Page ) + ( ( std::size_t{ 1 } << bits ) - 1 ) * sizeof( Ref );
   Page * const page = static_cast< Page * >( ::operator new( bytes ) );
   page->bits = static_cast< std::uint8_t >( bits );
   page->prefix = static_cast< std::uint8_t >( prefix );
   page->deep = 0;
   return page;
}

void HashDirectory::freePage( Page * page ) { ::operator delete( page ); }

HashDirectory::Ref HashDirectory::below( Ref ref, std::uint64_t hash ) {
   while ( const unsigned bits = ref & kBitsMask ) {
      ref = pageOf( ref )->slots[hash >> ( 64 - bits )];
      hash <<= bits;
   }
   return ref;
}

HashDirectory::Path HashDirectory::pathTo( std::uint64_t hash ) const {
   Path path;
   path.steps[0] = { const_cast< Ref * >( &root_ ), nullptr };
   for ( Ref ref = root_; ( ref & kBitsMask ) != 0; ) {
      const unsigned bits = ref & kBitsMask;
      Page * const page = pageOf( ref );
      Ref * const slot = &page->slots[hash >> ( 64 - bits )];
      path.steps[++path.last] = { slot, page };
      ref = *slot;
      hash <<= bits;
   }
   return path;
}

/// Writes `leaf` to every slot that stands for the same `depth` bits as the slot of `step`.
void HashDirectory::fill( const Step & step, unsigned depth, const Leaf * leaf ) {
   if ( !step.page ) {
      *step.slot = refOf( leaf );
      return;
   }
   const std::size_t width = widthOf( *step.page, depth );
   const std::size_t at = static_cast< std::size_t >( step.slot - step.page->slots );
   std::fill_n( step.page->slots + ( at & ~( width - 1 ) ), width, refOf( leaf ) );
}

void HashDirectory::replace( std::uint64_t hash, Leaf * with ) {
   const Path path = pathTo( hash );
   fill( path.steps[path.last], with->depth, with );
}

/// Sees to it that the leaf at the end of the path fills two slots at least.
void HashDirectory::makeRoom( Path & path, std::uint64_t hash ) {
   Step & step = path.steps[path.last];
   const Ref leaf = *step.slot;
   const unsigned depth = leafAt( leaf )->depth;
   if ( step.page && widthOf( *step.page, depth ) > 1 ) { return; }

   Page * page;
   if ( step.page && step.page->bits < kMaxPageBits ) {
      const Page & old = *step.page;
      page = newPage( old.bits + 1u, old.prefix );
      for ( std::size_t i = 0; i < std::size_t{ 1 } << old.bits; ++i ) {
         page->slots[2 * i] = page->slots[2 * i + 1] = old.slots[i];
      }
      *path.steps[path.last - 1].slot = refOf( page );
      freePage( step.page );
   } else {
      page = newPage( 1, depth );
      page->slots[0] = page->slots[1] = leaf;
      *step.slot = refOf( page );
      ++path.last;
   }
   const std::uint64_t rest = hash << page->prefix;
   path.steps[path.last] = { &page->slots[rest >> ( 64 - page->bits )], page };
}

void HashDirectory::divide( std::uint64_t hash, Leaf * zero, Leaf * one ) {
   Path path = pathTo( hash );
   makeRoom( path, hash );
   const unsigned depth = leafAt( *path.steps[path.last].slot )->depth + 1u;
   for ( Leaf * leaf : { zero, one } ) {
      if ( leaf->depth != depth ) { leaf->depth = static_cast< std::uint8_t >( depth ); }
   }
   const Step & step = path.steps[path.last];
   const std::size_t half = widthOf( *step.page, depth );
   const std::size_t at = static_cast< std::size_t >( step.slot - step.page->slots );
   Ref * const from = step.page->slots + ( at & ~( 2 * half - 1 ) );
   std::fill_n( from, half, refOf( zero ) );
   std::fill_n( from + half, half, refOf( one ) );
   if ( half == 1 ) { step.page->deep = static_cast< std::uint16_t >( step.page->deep + 2 ); }
}

HashDirectory::Leaf * HashDirectory::buddyOf( std::uint64_t hash ) const {
   const Path path = pathTo( hash );
   const Step & step = path.steps[path.last];
   if ( !step.page ) { return nullptr; }
   const unsigned depth = leafAt( *step.slot )->depth;
   const std::size_t width = widthOf( *step.page, depth );
   const std::size_t at = static_cast< std::size_t >( step.slot - step.page->slots );
   const Ref buddy = step.page->slots[at ^ width];
   return ( buddy & kBitsMask ) == 0 && leafAt( buddy )->depth == depth ? leafAt( buddy ) : nullptr;
}

void HashDirectory::unite( std::uint64_t hash, Leaf * merged ) {
   Path path = pathTo( hash );
   Page * page = path.steps[path.last].page;
   if ( widthOf( *page, merged->depth ) == 2 ) {
      page->deep = static_cast< std::uint16_t >( page->deep - 2 );
   }
   fill( path.steps[path.last], merged->depth, merged );

   Ref & above = *path.steps[path.last - 1].slot;
   while ( page->deep == 0 && page->bits > 1 ) { // every leaf fills two slots: half is enough
      Page * const small = newPage( page->bits - 1u, page->prefix );
      for ( std::size_t i = 0; i < std::size_t{ 1 } << small->bits; ++i ) {
         small->slots[i] = page->slots[2 * i];
         // A leaf alone in its slot differs from the other of the pair. No look at the leaves.
         if ( i % 2 != 0 && small->slots[i - 1] != small->slots[i] ) {
            small->deep = static_cast< std::uint16_t >( small->deep + 2 );
         }
      }
      freePage( page );
      page = small;
      above = refOf( page );
   }
   if ( page->deep == 0 ) { // one leaf is all there is
      above = page->slots[0];
      freePage( page );
   }
}

void HashDirectory::freePages( Ref ref ) {
   if ( ( ref & kBitsMask ) == 0 ) { return; }
   Page * const page = pageOf( ref );
   for ( std::size_t i = 0; i < std::size_t{ 1 } << page->bits; ++i ) {
      freePages( page->slots[i] );
   }
   freePage( page );
}

void HashDirectory::clear() {
   freePages( root_ );
   root_ = refOf( emptyLeaf() );
}

} // namespace Quon::detail
