/// The keyed collection's single operations, and those of `boost::unordered_flat_map`.

#include "CollectionsUnderTest.h"
#include "Instructions.h"
#include "Keys.h"

namespace bench {
namespace {

template< class Collection, class Kind >
std::size_t lookupHit( std::size_t count ) {
   Collection collection;
   fill( collection, keysFrom< Kind >( 0, count ) );
   const auto keys = inAnotherOrder( keysFrom< Kind >( 0, count ) );
   std::size_t found = 0;
   counted( [&] {
      for ( const auto & key : keys ) { found += collection.has( key ); }
   } );
   return found;
}

template< class Collection, class Kind >
std::size_t lookupMiss( std::size_t count ) {
   Collection collection;
   fill( collection, keysFrom< Kind >( 0, count ) );
   const auto keys = keysFrom< Kind >( count, count );
   std::size_t missed = 0;
   counted( [&] {
      for ( const auto & key : keys ) { missed += !collection.has( key ); }
   } );
   return missed;
}

template< class Collection, class Kind >
std::size_t insert( std::size_t count ) {
   const auto keys = keysFrom< Kind >( 0, count );
   Collection collection;
   counted( [&] { fill( collection, keys ); } );
   return count;
}

template< class Collection, class Kind >
std::size_t erase( std::size_t count ) {
   Collection collection;
   fill( collection, keysFrom< Kind >( 0, count ) );
   const auto keys = inAnotherOrder( keysFrom< Kind >( 0, count ) );
   counted( [&] {
      for ( const auto & key : keys ) { collection.erase( key ); }
   } );
   return count;
}

template< class Collection, class Kind >
std::size_t eraseWhileIterating( std::size_t count ) {
   Collection collection;
   fill( collection, keysFrom< Kind >( 0, count ) );
   counted( [&] { collection.eraseWhileIterating(); } );
   return count;
}

template< template< class > class Of, class Kind >
void add( CountedWorks & works, const std::string & of ) {
   works["lookupHit" + of] = lookupHit< Of< Kind >, Kind >;
   works["lookupMiss" + of] = lookupMiss< Of< Kind >, Kind >;
   works["insert" + of] = insert< Of< Kind >, Kind >;
   works["erase" + of] = erase< Of< Kind >, Kind >;
   works["eraseWhileIterating" + of] = eraseWhileIterating< Of< Kind >, Kind >;
}

} // namespace
} // namespace bench

int main( int argc, char ** argv ) {
   bench::CountedWorks works;
   bench::add< bench::Ours, bench::NumberToPayload >( works, "Numbers" );
   bench::add< bench::Flat, bench::NumberToPayload >( works, "NumbersReference" );
   bench::add< bench::Ours, bench::TextToNumber >( works, "Texts" );
   bench::add< bench::Flat, bench::TextToNumber >( works, "TextsReference" );
   return bench::countInstructions( works, argc, argv );
}
