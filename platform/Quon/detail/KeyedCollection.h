#pragma once

#include "Lumo/Assert.h"
#include "Lumo/Thread.h"
#include "Quon/detail/Element.h"
#include "Quon/detail/KeyedIterator.h"
#include "Quon/detail/Relocate.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>
#include <utility>

namespace Quon::detail {

/// What `memberIs` did.
template< class NodePtr >
struct MemberIs {
   NodePtr node;
   bool inserted; ///< False: the key was present, its value was replaced.
   explicit operator bool() const { return inserted; }
};

/// The keyed collection as its users see it, over a store that keeps the elements in order.
///
/// The store knows structure; this class knows the order of events. For every change it holds:
/// the arguments are judged, then the store is changed, then the version, then the iterators that
/// lost their element are given it, and only then does anything die. A destructor of a key or value
/// may therefore use this collection in any way.
///
/// Thread     event loop only (checked in debug builds)
/// Pointers   a `Node *` is good until the next insertion or deletion
template< class Self, class Store >
class KeyedCollection {
 public:
   using Key = typename Store::Key;
   using Value = typename Store::Value;
   using Node = typename Store::Node;
   using NodePtr = typename Store::NodePtr;
   using Where = typename Store::Where;
   using Iterator = KeyedIterator< KeyedCollection >;
   using CheckedIterator = detail::CheckedIterator< KeyedCollection >;
   static constexpr bool hasValue = !std::is_void_v< Value >;

   KeyedCollection() = default;
   KeyedCollection( KeyedCollection && other ) { takeContents( other ); }
   KeyedCollection & operator=( KeyedCollection && other ) {
      if ( this != &other ) {
         memberDelAll();
         takeContents( other );
      }
      return *this;
   }
   ~KeyedCollection() {
      memberDelAll();
      eachIterator( []( Iterator & i ) { i.hashMap_ = nullptr; } );
   }

   std::size_t size() const { return store_.size(); }
   bool empty() const { return store_.size() == 0; }

   /// Different after every insertion, deletion and replaced value.
   std::uint64_t version() const { return version_; }

   /// Whether `a` comes before `b` in this collection's order. Neither need be present.
   template< class A, class B >
   static bool isBefore( const A & a, const B & b ) {
      return Store::isBefore( a, b );
   }

   /// The element under `key` or null. `key` may be any probe that hashes and compares like one.
   template< class K2 >
   NodePtr lookup( const K2 & key ) const {
      return store_.find( key );
   }
   template< class K2 >
   NodePtr operator[]( const K2 & key ) const {
      return store_.find( key );
   }

   /// The element under `key`, inserted with a default value if it was absent.
   Node & newMember( const Key & key )
      requires( hasValue )
   {
      changing();
      const auto [node, inserted] = store_.insert( key, iterators_, [&key] {
         Value value{};
         Node::checkKey( key, value );
         return Node( key, std::move( value ) );
      } );
      version_ += inserted;
      return *node;
   }

   /// The element under `key`, inserted with a copy of `value` if it was absent.
   template< class V = Value >
   MemberIs< NodePtr > newMember( const Key & key, const std::type_identity_t< V > & value )
      requires( hasValue )
   {
      changing();
      Node::checkKey( key, value );
      const auto [node, inserted] =
         store_.insert( key, iterators_, [&] { return Node( key, value ); } );
      version_ += inserted;
      return { node, inserted };
   }

   /// The element under `key`, inserted with the value that `make()` makes if it was absent.
   template< class Make >
   MemberIs< NodePtr > newMember( const Key & key, const Make & make )
      requires( hasValue && std::is_same_v< std::invoke_result_t< const Make & >, Value > )
   {
      changing();
      const auto [node, inserted] = store_.insert( key, iterators_, [&] {
         Node fresh( key, MadeInPlace(), make );
         Node::checkKey( key, std::as_const( fresh ).value() );
         return fresh;
      } );
      version_ += inserted;
      return { node, inserted };
   }

   /// Inserts `key` with `value`, or replaces the value that it had.
   template< class V = Value >
   MemberIs< NodePtr > memberIs( const Key & key, std::type_identity_t< V > value )
      requires( hasValue )
   {
      changing();
      Node::checkKey( key, value );
      // `value` is consumed by the insertion or, when the key is present, by the exchange.
      const auto [node, inserted] =
         store_.insert( key, iterators_, [&] { return Node( key, std::move( value ) ); } );
      ++version_;
      if ( !inserted ) { node->swapValue( value ); }
      return { node, inserted };
   }

   /// As `memberIs`, with one look-up for values that are often the same: an equal value is left as
   /// it is, and then this is no change and false. `previous`, if there is one, is given the value
   /// that was replaced.
   template< class V = Value >
   bool memberIsUnlessEqual( const Key & key, const std::type_identity_t< V > & value,
                             std::optional< V > * previous = nullptr )
      requires( hasValue )
   {
      changing();
      Node::checkKey( key, value );
      const auto [node, inserted] =
         store_.insert( key, iterators_, [&] { return Node( key, value ); } );
      if ( !inserted && std::as_const( *node ).value() == value ) { return false; }
      ++version_;
      if ( !inserted ) {
         V replaced = value;
         node->swapValue( replaced );
         if ( previous ) { previous->emplace( std::move( replaced ) ); }
      }
      return true;
   }

   /// Inserts `key` into the set.
   MemberIs< NodePtr > memberIs( const Key & key )
      requires( !hasValue )
   {
      changing();
      const auto [node, inserted] =
         store_.insert( key, iterators_, [&key] { return Node( key ); } );
      version_ += inserted;
      return { node, inserted };
   }

   /// Replaces the value under `key`. False, and no effect, if there is none.
   template< class V = Value >
   bool update( const Key & key, std::type_identity_t< V > value )
      requires( hasValue )
   {
      changing();
      Node::checkKey( key, value );
      Node * const node = store_.findMutable( key );
      if ( !node ) { return false; }
      ++version_;
      node->swapValue( value );
      return true;
   }

   /// Deletes the element under `key`. False, and no effect, if there is none.
   template< class K2 >
   bool deleteMember( const K2 & key ) {
      changing();
      const auto place = store_.locate( key );
      if ( !place ) { return false; }
      erase( place );
      return true;
   }

   /// Deletes the element that `at` stands on, without looking for it. `at` keeps key and value
   /// until it advances. False, and no effect, if the element is gone already or `at` is at the
   /// end.
   bool deleteUnder( const Iterator & at )
      requires( hasValue )
   {
      LUMO_DEBUG_ASSERT( !at || at.hashMap_ == this );
      changing();
      if ( !at || at.isParked() ) { return false; }
      if constexpr ( requires { store_.placeAt( at ); } ) {
         if ( at.leaf ) {
            erase( store_.placeAt( at ) );
            return true;
         }
      }
      return deleteMember( at.key() );
   }

   /// Deletes the element that `at` stands on, if it is there, and has `at` advance: nothing of the
   /// element is kept for it. At the end it does nothing.
   void deleteAt( Iterator & at ) {
      LUMO_DEBUG_ASSERT( !at || at.hashMap_ == this );
      if ( !at ) { return; }
      const Key key = at.key();
      at.advance();
      deleteMember( key );
   }

   /// Deletes the element under `key` and hands back its value, or nothing.
   template< class K2, class V = Value >
   std::optional< V > takeMember( const K2 & key )
      requires( hasValue )
   {
      changing();
      std::optional< V > taken;
      if ( const auto place = store_.locate( key ) ) {
         ++version_;
         if ( isStoodOn( store_.at( place ) ) ) { leaveElements( &store_.at( place ) ); }
         taken.emplace( std::move( store_.at( place ) ).takeValue() );
         store_.erase( place, iterators_ );
      }
      return taken;
   }

   void memberDelAll() {
      changing();
      if ( empty() ) { return; }
      Store gone = std::exchange( store_, Store() );
      ++version_;
      parkIteratorsOfLostElements();
   }

   /// Deletes every element whose key is `unwanted`, in no particular order, so that nothing has to
   /// be put in order first; a DenseMap2018 is in order anyway. `unwanted` may be asked of a key
   /// more than once; it changes nothing here and does not throw. O(size).
   template< class Unwanted >
   void deleteIf( const Unwanted & unwanted )
      requires requires( Store & store, std::uint64_t at ) { store.extractIf( at, unwanted, {} ); }
   {
      changing();
      for ( std::uint64_t at = 0; !empty(); ) {
         const auto gone = store_.extractIf( at, unwanted, iterators_ );
         if ( !gone.empty() ) {
            ++version_;
            parkIteratorsOfLostElements();
         }
         if ( at == 0 ) { break; }
      }
   }

   /// Deletes `key` and everything after it in the collection's order. O(deleted), as are the next.
   void deleteFrom( const Key & key ) { deleteRange( Key( key ), std::nullopt ); }
   /// Deletes everything before `key`.
   void deleteUpTo( const Key & key ) { deleteRange( std::nullopt, Key( key ) ); }
   /// Deletes `from` and everything after it that is before `to`.
   void deleteBetween( const Key & from, const Key & to ) {
      if ( Store::isBefore( from, to ) ) { deleteRange( Key( from ), Key( to ) ); }
   }

   /// Swaps the contents with an empty collection. O(1). Iterators stay with this collection.
   Self moveOut() { return Self( std::move( static_cast< Self & >( *this ) ) ); }

   /// Takes in every element of `other` whose key is absent here; the rest die. O(the smaller).
   void mergeBack( Self && other ) {
      changing();
      KeyedCollection & from = other;
      if ( &from == this || from.empty() ) { return; }
      ++version_;
      ++from.version_;
      from.leaveElements();
      Store smaller = std::exchange( from.store_, Store() );
      const bool ourElementsMove = store_.size() < smaller.size();
      if ( ourElementsMove ) {
         std::swap( store_, smaller );
         eachIterator( []( Iterator & i ) { i.forgetPlace(); } );
      }
      smaller.forEach( [&]( Node & node ) {
         const auto [place, inserted] = store_.insert(
            node.fwkKey(), iterators_, [&node] { return Node( std::move( node ) ); } );
         if constexpr ( !nodesAreCopies ) {
            if ( ourElementsMove ) {
               if ( !inserted ) { std::swap( *place, node ); }
               movedTo( node, *place );
            }
         }
      } );
   }

   Iterator iterator() const {
      Iterator i( *this );
      store_.first( i );
      return i;
   }
   /// Starts at the first element that is not before `key`.
   template< class K2 >
   Iterator iteratorFrom( const K2 & key ) const {
      Iterator i( *this );
      store_.notBefore( i, key );
      return i;
   }
   CheckedIterator checkedIterator() const {
      CheckedIterator i( *this );
      store_.first( i.cursor_ );
      return i;
   }
   template< class K2 >
   CheckedIterator checkedIteratorFrom( const K2 & key ) const {
      CheckedIterator i( *this );
      store_.notBefore( i.cursor_, key );
      return i;
   }
   CheckedIterator begin() const { return checkedIterator(); }
   std::default_sentinel_t end() const { return {}; }

 private:
   /// Iterators carry their element with them, so that no deletion concerns them.
   static constexpr bool nodesAreCopies = Store::nodesAreCopies;

   friend Iterator;
   friend CheckedIterator;

   static void changing() { Lumo::Impl::checkEventLoopThread(); }

   template< class Place >
   void erase( const Place & place ) {
      ++version_;
      if constexpr ( !nodesAreCopies ) {
         if ( isStoodOn( store_.at( place ) ) ) { park( store_.at( place ) ); }
         if constexpr ( !std::is_trivially_destructible_v< Node > ) {
            Relocated< Node > gone; // dies when everything is in order again
            store_.takeOut( place, &gone.object, iterators_ );
            return;
         }
      }
      store_.erase( place, iterators_ );
   }

   bool isStoodOn( const Node & node ) const {
      for ( const Cursor< Node > * c = iterators_; c; c = c->nextRegistered ) {
         if ( c->node == &node ) { return true; }
      }
      return false;
   }

   template< class F >
   void eachIterator( F f ) const {
      for ( Cursor< Node > * c = iterators_; c; ) {
         Cursor< Node > * const next = c->nextRegistered;
         f( static_cast< Iterator & >( *c ) );
         c = next;
      }
   }

   /// The new home of `other`'s elements is here; its iterators stay there with a copy.
   void takeContents( KeyedCollection & other ) {
      changing();
      if ( other.empty() ) { return; }
      other.leaveElements();
      store_ = std::exchange( other.store_, Store() );
      ++version_;
      ++other.version_;
   }

   void deleteRange( const std::optional< Key > & from, const std::optional< Key > & to ) {
      changing();
      const auto gone = store_.extract( from, to, iterators_ );
      if ( gone.empty() ) { return; }
      ++version_;
      parkIteratorsOfLostElements();
   }

   // Iterators of elements that leave: KeyedCollectionParking.h
   void park( Node & lost ) const;
   void parkIteratorsOfLostElements() const;
   void leaveElements( const Node * only = nullptr ) const;
   void movedTo( const Node & from, const Node & to ) const;

   Store store_;
   std::uint64_t version_ = 0;
   mutable Cursor< Node > * iterators_ = nullptr;
};

} // namespace Quon::detail

#include "Quon/detail/KeyedCollectionParking.h"
