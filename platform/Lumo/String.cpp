#include "Lumo/String.h"

#include <cstring>
#include <new>
#include <ostream>

namespace Lumo {

constinit std::uint64_t String::processSeed_ = 0;

void String::takeProcessSeed() { processSeed_ = processHashSeed(); }

String::String( std::string_view text ) : word_( kShortTag ) {
   if ( text.empty() ) { return; }
   if ( text.size() <= kShortSize ) {
      word_ |= text.size() << 1;
      std::memcpy( reinterpret_cast< char * >( &word_ ) + 1, text.data(), text.size() );
      return;
   }
   Block * block = allocate( text.size() );
   std::memcpy( block->bytes(), text.data(), text.size() );
   word_ = reinterpret_cast< std::uint64_t >( block );
   seal();
}

String::Block * String::allocate( std::size_t size ) {
   return new ( ::operator new( sizeof( Block ) + size ) ) Block( size );
}

void String::seal() {
   block()->hash = Impl::hashBytes( block()->bytes(), block()->size, processHashSeed() );
}

void String::free( Block * block ) { ::operator delete( block ); }

bool String::equalsLong( const String & other ) const {
   const Block * a = block();
   const Block * b = other.block();
   return a->hash == b->hash && a->size == b->size &&
          std::memcmp( data(), other.data(), a->size ) == 0;
}

String operator+( const String & a, const String & b ) {
   if ( b.empty() ) { return a; }
   if ( a.empty() ) { return b; }
   const std::size_t size = a.size() + b.size();
   if ( size <= String::kShortSize ) {
      char joined[String::kShortSize];
      std::memcpy( joined, a.data(), a.size() );
      std::memcpy( joined + a.size(), b.data(), b.size() );
      return std::string_view( joined, size );
   }
   String result;
   String::Block * block = String::allocate( size );
   std::memcpy( block->bytes(), a.data(), a.size() );
   std::memcpy( block->bytes() + a.size(), b.data(), b.size() );
   result.word_ = reinterpret_cast< std::uint64_t >( block );
   result.seal();
   return result;
}

std::ostream & operator<<( std::ostream & os, const String & s ) { return os << s.view(); }

} // namespace Lumo
