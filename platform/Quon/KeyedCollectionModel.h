#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <source_location>
#include <string>
#include <vector>

#include <rapidcheck.h>

#include "Quon/KeyedCollectionTestTypes.h"

/// A keyed collection and, beside it, the same thing written as naively as possible. Every step is
/// done to both, and they must agree. For tests only.
namespace Quon::test {

/// Fails the property. A function, because the library's macro costs seconds to compile each.
inline void require( bool held, std::source_location where = std::source_location::current() ) {
   if ( !held ) { RC_FAIL( "line " + std::to_string( where.line() ) ); }
}

struct Nothing {
   auto operator<=>( const Nothing & ) const = default;
};

/// The n-th value of a type of collection; `Nothing` in sets.
template< class Types >
auto makeValue( unsigned n, unsigned v ) {
   if constexpr ( Types::Collection::hasValue ) {
      return Types::value( n, v );
   } else {
      return Nothing();
   }
}

template< class NodePtr >
auto valueOf( const NodePtr & node ) {
   if constexpr ( requires { node->value(); } ) {
      return node->value();
   } else {
      return Nothing();
   }
}

template< class Types >
class ModelledCollection {
 public:
   using Collection = typename Types::Collection;
   using Key = typename Collection::Key;
   using Value = decltype( makeValue< Types >( 0, 0 ) );
   struct Before {
      bool operator()( const Key & a, const Key & b ) const { return Collection::isBefore( a, b ); }
   };
   using Model = std::map< Key, Value, Before >;
   static constexpr unsigned kKeys = 600;

   void memberIs( unsigned n, unsigned v ) {
      const Key key = Types::key( n );
      bool inserted;
      if constexpr ( Collection::hasValue ) {
         const auto done = real_->memberIs( key, Types::value( n, v ) );
         require( done.node->fwkKey() == key );
         inserted = done.inserted;
      } else {
         inserted = real_->memberIs( key ).inserted;
      }
      require( inserted == !model_.contains( key ) );
      model_[key] = makeValue< Types >( n, v );
   }
   void manyMembers( unsigned n, unsigned count, unsigned v ) {
      for ( ; count > 0; --count, ++n ) { memberIs( n % kKeys, v + count ); }
   }
   void update( unsigned n, unsigned v ) {
      if constexpr ( Collection::hasValue ) {
         const Key key = Types::key( n );
         const auto version = real_->version();
         const bool present = model_.contains( key );
         require( real_->update( key, Types::value( n, v ) ) == present );
         require( ( real_->version() != version ) == present );
         if ( present ) { model_[key] = Types::value( n, v ); }
      } else {
         memberIs( n, v );
      }
   }
   void newMember( unsigned n ) {
      if constexpr ( requires { real_->newMember( Types::key( n ) ).value() = Value(); } ) {
         const Key key = Types::key( n );
         const bool present = model_.contains( key );
         require( real_->newMember( key ).value() == model_[key] || !present );
         if ( !present ) { require( real_->lookup( key )->value() == Value() ); }
      }
   }
   void del( const Key & key ) {
      const bool present = model_.contains( key );
      parkOn( [&]( const Key & k ) { return k == key; } );
      model_.erase( key );
      require( real_->deleteMember( key ) == present );
   }
   void del( unsigned n ) { del( Types::key( n ) ); }
   void manyDel( unsigned n, unsigned count ) {
      for ( ; count > 0; --count, ++n ) { del( n % kKeys ); }
   }
   void take( unsigned n ) {
      if constexpr ( Collection::hasValue ) {
         const Key key = Types::key( n );
         parkOn( [&]( const Key & k ) { return k == key; } );
         const auto node = model_.extract( key );
         const auto taken = real_->takeMember( key );
         require( taken.has_value() == !node.empty() );
         if ( taken ) { require( *taken == node.mapped() ); }
      } else {
         del( n );
      }
   }
   void delFrom( unsigned n ) {
      const Key key = Types::key( n );
      eraseModel( model_.lower_bound( key ), model_.end() );
      real_->deleteFrom( key );
   }
   void delUpTo( unsigned n ) {
      const Key key = Types::key( n );
      eraseModel( model_.begin(), model_.lower_bound( key ) );
      real_->deleteUpTo( key );
   }
   void delBetween( unsigned a, unsigned b ) {
      const Key from = Types::key( a );
      const Key to = Types::key( b );
      if ( Before()( from, to ) ) {
         eraseModel( model_.lower_bound( from ), model_.lower_bound( to ) );
      }
      real_->deleteBetween( from, to );
   }
   /// One key in `every`.
   void delIf( unsigned every, unsigned which ) {
      std::set< Key, Before > unwanted;
      for ( unsigned n = which % every; n < kKeys; n += every ) {
         unwanted.insert( Types::key( n ) );
      }
      const auto isUnwanted = [&]( const Key & key ) { return unwanted.contains( key ); };
      if constexpr ( requires { real_->deleteIf( isUnwanted ); } ) {
         parkOn( isUnwanted );
         std::erase_if( model_, [&]( const auto & one ) { return isUnwanted( one.first ); } );
         real_->deleteIf( isUnwanted );
      }
   }
   void delAll() {
      eraseModel( model_.begin(), model_.end() );
      real_->memberDelAll();
   }

   /// Adds to what was moved out before: the elements that are moved out now are the newer ones.
   void moveOut() {
      parkOn( []( const Key & ) { return true; } );
      auto now = real_->moveOut();
      require( real_->empty() );
      auto modelNow = std::exchange( model_, {} );
      now.mergeBack( std::move( out_ ) );
      require( out_.empty() );
      modelNow.merge( modelOut_ );
      out_ = std::move( now );
      modelOut_ = std::move( modelNow );
   }
   void mergeBack() {
      real_->mergeBack( std::move( out_ ) );
      model_.merge( modelOut_ );
      require( out_.empty() );
      modelOut_.clear();
   }

   void start() { walks_.push_back( { real_->iterator(), {}, stand( model_.begin() ) } ); }
   void startAt( unsigned n ) {
      const Key key = Types::key( n );
      walks_.push_back( { real_->iteratorFrom( key ), {}, stand( model_.lower_bound( key ) ) } );
   }
   void copyWalk( unsigned i ) {
      if ( Walk * const walk = pick( i ) ) { walks_.push_back( Walk( *walk ) ); }
   }
   void dropWalk( unsigned i ) {
      if ( !walks_.empty() ) { walks_.erase( walks_.begin() + i % walks_.size() ); }
   }
   void advance( unsigned i, unsigned steps ) {
      Walk * const walk = pick( i );
      for ( ; walk && steps > 0; --steps ) {
         if ( walk->at ) { walk->at = stand( model_.upper_bound( *walk->at ) ); }
         walk->parked.reset();
         walk->real.advance();
         check( *walk );
      }
   }
   void delCurrent( unsigned i ) {
      Walk * const walk = pick( i );
      if ( walk && walk->at ) { del( Key( *walk->at ) ); }
   }
   void delUnder( unsigned i ) {
      Walk * const walk = pick( i );
      if ( !walk ) { return; }
      const bool present = walk->at && !walk->parked && model_.contains( *walk->at );
      if ( present ) {
         eraseModel( model_.find( *walk->at ), std::next( model_.find( *walk->at ) ) );
      }
      if constexpr ( Collection::hasValue ) {
         require( real_->deleteUnder( walk->real ) == present );
      } else if ( present ) {
         real_->deleteMember( Key( walk->real.key() ) );
      }
      check( *walk );
   }
   void delAt( unsigned i ) {
      Walk * const walk = pick( i );
      if ( !walk ) { return; }
      if ( walk->at ) {
         const Key key = *walk->at;
         walk->at = stand( model_.upper_bound( key ) );
         walk->parked.reset();
         eraseModel( model_.lower_bound( key ), model_.upper_bound( key ) );
      }
      real_->deleteAt( walk->real );
      check( *walk );
   }
   void drainFrom( unsigned i, unsigned steps ) {
      for ( ; steps > 0; --steps ) {
         delCurrent( i );
         advance( i, 1 );
      }
   }

   /// Destroys the collection under its iterators, and starts again with an empty one.
   void destroy() {
      parkOn( []( const Key & ) { return true; } );
      model_.clear();
      real_ = std::make_unique< Collection >();
      for ( Walk & walk : walks_ ) {
         check( walk );
         walk.real.advance();
         require( !walk.real );
      }
      walks_.clear();
   }

   void checkWalks() const {
      require( real_->size() == model_.size() );
      for ( const Walk & walk : walks_ ) { check( walk ); }
   }
   void checkContents() const {
      checkWalks();
      auto expected = model_.begin();
      for ( const auto & node : *real_ ) {
         require( expected != model_.end() );
         require( node.fwkKey() == expected->first );
         require( valueOf( &node ) == expected->second );
         ++expected;
      }
      require( expected == model_.end() );
      for ( unsigned n = 0; n < kKeys; ++n ) {
         const auto node = real_->lookup( Types::key( n ) );
         require( bool( node ) == model_.contains( Types::key( n ) ) );
      }
   }

 private:
   struct Walk {
      typename Collection::Iterator real;
      std::optional< Value > parked;
      std::optional< Key > at;
   };

   std::optional< Key > stand( typename Model::const_iterator i ) const {
      return i == model_.end() ? std::nullopt : std::optional( i->first );
   }
   Walk * pick( unsigned i ) { return walks_.empty() ? nullptr : &walks_[i % walks_.size()]; }

   template< class Match >
   void parkOn( Match match ) {
      for ( Walk & walk : walks_ ) {
         if ( walk.at && !walk.parked && match( *walk.at ) && model_.contains( *walk.at ) ) {
            walk.parked = model_.at( *walk.at );
         }
      }
   }
   void eraseModel( typename Model::iterator from, typename Model::iterator to ) {
      const Model gone( from, to );
      parkOn( [&]( const Key & key ) { return gone.contains( key ); } );
      model_.erase( from, to );
   }
   void check( const Walk & walk ) const {
      require( bool( walk.real ) == walk.at.has_value() );
      if ( !walk.at ) { return; }
      require( walk.real.key() == *walk.at );
      require( valueOf( &*walk.real ) == ( walk.parked ? *walk.parked : model_.at( *walk.at ) ) );
   }

   std::unique_ptr< Collection > real_ = std::make_unique< Collection >();
   Model model_;
   Collection out_;
   Model modelOut_;
   std::vector< Walk > walks_;
};

} // namespace Quon::test
