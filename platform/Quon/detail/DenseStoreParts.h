#pragma once

// The longer functions of a DenseStore. Included by DenseStore.h only.

#include "Quon/detail/DenseStore.h"

namespace Quon::detail {

/// Elements that were taken out, to be destroyed later. Of a set there is nothing to keep.
template< std::unsigned_integral K, class V, class Traits >
class DenseStore< K, V, Traits >::Remains {
 public:
   Remains() = default;
   Remains( Remains && other ) noexcept
      : blocks_( std::exchange( other.blocks_, {} ) ), count_( other.count_ ) {}
   Remains & operator=( Remains && ) = delete;
   ~Remains() {
      for ( Elements * block : blocks_ ) { Elements::destroy( block ); }
   }
   bool empty() const { return count_ == 0; }
   void addKeys( unsigned count ) { count_ += count; }
   void add( Elements * block ) { blocks_.push_back( block ); }

 private:
   std::vector< Elements * > blocks_;
   std::size_t count_ = 0;
};

/// Makes the tree high enough for `key`. At most ten small blocks.
template< std::unsigned_integral K, class V, class Traits >
void DenseStore< K, V, Traits >::growTo( std::uint64_t key ) {
   while ( !covers( key ) ) {
      if ( root_ ) {
         Inner * above = nullptr;
         *Inner::add( above, 0, NoWatch() ) = root_;
         root_ = wordOf( above );
      }
      ++height_;
   }
}

/// The place of the level 0 word for `key`; what is missing above it is made.
template< std::unsigned_integral K, class V, class Traits >
auto DenseStore< K, V, Traits >::newWordFor( std::uint64_t key ) -> Word * {
   growTo( key );
   Word * word = &root_;
   for ( unsigned level = height_; level > 0; --level ) {
      Inner * block = innerOf( *word );
      const unsigned slot = slotOf( key, level );
      if ( !block || !block->has( slot ) ) {
         *Inner::add( block, slot, NoWatch() ) = 0;
         *word = wordOf( block );
      }
      word = &block->at( slot );
   }
   return word;
}

/// Takes out keys that share the level 0 word of `key`; their elements are destroyed already, or
/// moved away with their block (then all of it is `gone`). Blocks that become empty go, upwards,
/// and so do levels that are not needed any more.
template< std::unsigned_integral K, class V, class Traits >
void DenseStore< K, V, Traits >::dropKeys( std::uint64_t key, std::uint64_t gone,
                                           Watchers watchers ) {
   Word * path[kMaxHeight + 1];
   path[height_] = &root_;
   for ( unsigned level = height_; level > 0; --level ) {
      path[level - 1] = &innerOf( *path[level] )->at( slotOf( key, level ) );
   }
   Word & lowestWord = *path[0];
   size_ -= bitsSet( gone );
   if constexpr ( isSet ) {
      lowestWord &= ~gone;
   } else if ( elementsOf( lowestWord )->mask() == gone && bitsSet( gone ) > 1 ) {
      lowestWord = 0; // the block itself was taken
   } else {
      Elements * block = elementsOf( lowestWord );
      for ( ; gone != 0; gone &= gone - 1 ) {
         Elements::drop( block, static_cast< unsigned >( std::countr_zero( gone ) ),
                         Watch{ watchers } );
      }
      lowestWord = wordOf( block );
   }
   for ( unsigned level = 1; level <= height_ && *path[level - 1] == 0; ++level ) {
      Inner * block = innerOf( *path[level] );
      Inner::drop( block, slotOf( key, level ), NoWatch() );
      *path[level] = wordOf( block );
   }
   while ( height_ > 0 && root_ && innerOf( root_ )->mask() == 1 ) {
      Inner * const top = innerOf( root_ );
      root_ = top->at( 0 );
      Inner::destroy( top );
      --height_;
   }
   if ( !root_ ) { height_ = 0; }
}

template< std::unsigned_integral K, class V, class Traits >
auto DenseStore< K, V, Traits >::extract( const std::optional< K > & from,
                                          const std::optional< K > & to, Watchers watchers )
   -> Remains {
   Remains out;
   std::uint64_t at = from ? *from : 0;
   while ( root_ ) {
      const auto found = covers( at ) ? firstNotBefore( root_, height_, at ) : std::nullopt;
      if ( !found || ( to && *found >= *to ) ) { break; }
      const std::uint64_t base = *found & ~std::uint64_t{ 63 };
      std::uint64_t range = ~std::uint64_t{ 0 } << ( *found & 63 );
      if ( to && ( *to & ~std::uint64_t{ 63 } ) == base ) { range &= bitOf( *to ) - 1; }
      const Word word = lowest( base );
      if constexpr ( isSet ) {
         out.addKeys( bitsSet( word & range ) );
         dropKeys( base, word & range, watchers );
      } else {
         Elements & block = *elementsOf( word );
         const std::uint64_t gone = block.mask() & range;
         out.addKeys( bitsSet( gone ) );
         if ( gone == block.mask() && bitsSet( gone ) > 1 ) {
            Watch{ watchers }.replaced( &block, nullptr );
            dropKeys( base, gone, watchers );
            out.add( &block );
         } else {
            Elements * taken = nullptr;
            for ( std::uint64_t rest = gone; rest != 0; rest &= rest - 1 ) {
               const unsigned slot = static_cast< unsigned >( std::countr_zero( rest ) );
               Node & node = elementsOf( lowest( base ) )->at( slot );
               Node * const moved =
                  new ( Elements::add( taken, slot, Watch{ watchers } ) ) Node( std::move( node ) );
               std::destroy_at( &node );
               Watch{ watchers }.moved( &node, 1, moved );
               dropKeys( base, std::uint64_t{ 1 } << slot, watchers );
            }
            out.add( taken );
         }
      }
      if ( base + 64 == 0 ) { break; }
      at = base + 64;
   }
   return out;
}

template< std::unsigned_integral K, class V, class Traits >
void DenseStore< K, V, Traits >::seek( Where & c, std::uint64_t key ) const {
   const auto found = root_ && covers( key ) ? firstNotBefore( root_, height_, key ) : std::nullopt;
   if ( !found ) {
      standAtEnd( c );
   } else if constexpr ( isSet ) {
      c.stand( Node( static_cast< K >( *found ) ) );
   } else {
      Elements * const block = elementsOf( lowest( *found ) );
      c.leaf = block;
      c.at = static_cast< int >( *found & 63 );
      c.node = &block->at( static_cast< unsigned >( c.at ) );
   }
}

/// The first key not before `key` under `word`, which covers it.
template< std::unsigned_integral K, class V, class Traits >
std::optional< std::uint64_t >
DenseStore< K, V, Traits >::firstNotBefore( Word word, unsigned level, std::uint64_t key ) {
   const std::uint64_t from = ~std::uint64_t{ 0 } << slotOf( key, level );
   if ( level == 0 ) {
      std::uint64_t mask;
      if constexpr ( isSet ) {
         mask = word;
      } else {
         mask = elementsOf( word )->mask();
      }
      mask &= from;
      if ( mask == 0 ) { return std::nullopt; }
      return ( key & ~std::uint64_t{ 63 } ) | static_cast< unsigned >( std::countr_zero( mask ) );
   }
   Inner & block = *innerOf( word );
   for ( std::uint64_t rest = block.mask() & from; rest != 0; rest &= rest - 1 ) {
      const unsigned slot = static_cast< unsigned >( std::countr_zero( rest ) );
      if ( slot != slotOf( key, level ) ) { // everything there comes after `key`: its least digit
         const std::uint64_t above =
            level == kMaxHeight ? 0 : key >> 6 * ( level + 1 ) << 6 * ( level + 1 );
         key = above | std::uint64_t{ slot } << 6 * level;
      }
      if ( const auto found = firstNotBefore( block.at( slot ), level - 1, key ) ) { return found; }
   }
   return std::nullopt;
}

template< std::unsigned_integral K, class V, class Traits >
void DenseStore< K, V, Traits >::destroy( Word word, unsigned level ) {
   if ( level > 0 ) {
      innerOf( word )->forEach( [level]( unsigned, Word below ) { destroy( below, level - 1 ); } );
      Inner::destroy( innerOf( word ) );
   } else if constexpr ( !isSet ) {
      Elements::destroy( elementsOf( word ) );
   }
}

template< std::unsigned_integral K, class V, class Traits >
template< class F >
void DenseStore< K, V, Traits >::visit( Word word, unsigned level, std::uint64_t base, F & f ) {
   if ( level > 0 ) {
      innerOf( word )->forEach( [&]( unsigned slot, Word below ) {
         visit( below, level - 1, base | std::uint64_t{ slot } << 6 * level, f );
      } );
   } else if constexpr ( isSet ) {
      for ( ; word != 0; word &= word - 1 ) {
         Node node(
            static_cast< K >( base | static_cast< unsigned >( std::countr_zero( word ) ) ) );
         f( node );
      }
   } else {
      elementsOf( word )->forEach( [&]( unsigned, Node & node ) { f( node ); } );
   }
}

} // namespace Quon::detail
