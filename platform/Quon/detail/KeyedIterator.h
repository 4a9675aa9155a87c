#pragma once

#include "Lumo/Assert.h"
#include "Quon/detail/Cursor.h"

#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

/// The two iterators of a keyed collection.
///
/// `KeyedIterator` survives everything. The collection knows the iterators that stand in it; one
/// whose element is deleted, or moves out to another collection, has the element parked: moved (or
/// copied) into a block that all iterators on that element share. So the current element stays
/// readable, and `advance` goes to the first element after its key that is there by then.
///
/// `CheckedIterator` is for passes during which nobody may change the collection. It is a few plain
/// words and asserts on each step that the version is still the one it started at.
namespace Quon::detail {

template< class Collection >
class KeyedIterator : private Collection::Where {
 public:
   using Node = typename Collection::Node;
   using Key = typename Collection::Key;

   KeyedIterator( const KeyedIterator & other ) : Place() { copy( other ); }
   KeyedIterator & operator=( const KeyedIterator & other ) {
      if ( this != &other ) {
         leave();
         copy( other );
      }
      return *this;
   }
   ~KeyedIterator() { leave(); }

   /// Whether it stands on an element, deleted or not.
   explicit operator bool() const { return this->node || standsOnKeyAlone(); }

   const Node & operator*() const {
      LUMO_ASSERT( this->node );
      return *this->node;
   }
   const Node * operator->() const { return &**this; }
   const Key & key() const { return standsOnKeyAlone() ? *parked_->key : ( **this ).fwkKey(); }
   decltype( auto ) value() const { return ( **this ).value(); }

   /// Goes to the first element that comes after the current key now. At the end it stays there.
   void advance() {
      if ( !*this ) { return; }
      if ( !hashMap_ ) {
         this->node = nullptr;
      } else if ( this->leaf ) {
         hashMap_->store_.next( *this );
      } else {
         hashMap_->store_.after( *this, key() );
      }
      if ( parked_ ) { unpark(); }
   }
   KeyedIterator & operator++() {
      advance();
      return *this;
   }

 private:
   friend Collection;
   using Place = typename Collection::Where;

   /// What is kept of an element that left. Only its key when the value cannot be copied.
   struct Parked {
      unsigned users = 1;
      std::optional< Node > node;
      std::optional< Key > key;
   };

   explicit KeyedIterator( const Collection & hashMap ) : hashMap_( &hashMap ) { enlist(); }

   bool isParked() const { return parked_ && ( parked_->node || parked_->key ); }
   bool standsOnKeyAlone() const { return parked_ && parked_->key; }

   /// The block to park in: the spare one, if nobody else looks at it.
   Parked & emptyBlock() {
      if ( !parked_ ) { parked_ = new Parked; }
      return *parked_;
   }
   void shareBlock( KeyedIterator & first ) {
      dropBlock();
      parked_ = first.parked_;
      ++parked_->users;
      standOnBlock();
   }
   void standOnBlock() { this->node = parked_->node ? &*parked_->node : nullptr; }

   /// Lets go of the parked element but keeps the block: a pass that deletes as it goes parks
   /// every element once. The element dies last; its destructor may use this very iterator.
   void unpark() {
      if ( !isParked() ) { return; }
      if ( parked_->users > 1 ) {
         --parked_->users;
         parked_ = nullptr;
      } else {
         Parked * const block = std::exchange( parked_, nullptr );
         block->key.reset();
         block->node.reset();
         if ( parked_ ) {
            delete block;
         } else {
            parked_ = block;
         }
      }
   }
   void dropBlock() {
      Parked * const block = std::exchange( parked_, nullptr );
      if ( block && --block->users == 0 ) { delete block; }
   }

   void copy( const KeyedIterator & other ) {
      Place::operator=( other );
      hashMap_ = other.hashMap_;
      if ( other.isParked() ) { // a spare block is not for sharing
         parked_ = other.parked_;
         ++parked_->users;
      }
      enlist();
   }
   void enlist() {
      if ( hashMap_ ) {
         this->nextRegistered = hashMap_->iterators_;
         hashMap_->iterators_ = static_cast< Place * >( this );
      }
   }
   void leave() {
      if ( hashMap_ ) {
         auto ** link = &hashMap_->iterators_;
         while ( *link != static_cast< Place * >( this ) ) { link = &( *link )->nextRegistered; }
         *link = this->nextRegistered;
         hashMap_ = nullptr;
      }
      this->node = nullptr;
      dropBlock();
   }
   const Collection * hashMap_ = nullptr;
   Parked * parked_ = nullptr;
};

template< class Collection >
class CheckedIterator {
 public:
   using Node = typename Collection::Node;
   using Key = typename Collection::Key;
   using value_type = Node;
   using difference_type = std::ptrdiff_t;

   CheckedIterator() = default;

   explicit operator bool() const { return cursor_.node; }
   const Node & operator*() const {
      LUMO_ASSERT( cursor_.node );
      return *cursor_.node;
   }
   const Node * operator->() const { return &**this; }
   const Key & key() const { return ( **this ).fwkKey(); }
   decltype( auto ) value() const { return ( **this ).value(); }

   void advance() {
      LUMO_ASSERT( version_ == hashMap_->version() );
      if ( cursor_.leaf ) {
         hashMap_->store_.next( cursor_ );
      } else if ( cursor_.node ) {
         hashMap_->store_.after( cursor_, key() );
      }
   }
   CheckedIterator & operator++() {
      advance();
      return *this;
   }
   void operator++( int ) { advance(); }
   bool operator==( std::default_sentinel_t ) const { return !cursor_.node; }

 private:
   friend Collection;
   explicit CheckedIterator( const Collection & hashMap )
      : hashMap_( &hashMap ), version_( hashMap.version() ) {}

   const Collection * hashMap_ = nullptr;
   std::uint64_t version_ = 0;
   typename Collection::Where cursor_;
};

} // namespace Quon::detail
