#pragma once

#include <bit>
#include <compare>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Lumo/Export.h"
#include "Lumo/Hash.h"
#include "Lumo/RefCount.h"

namespace Lumo {

class String;

namespace Impl {

template< class T >
concept OtherText =
   std::convertible_to< const T &, std::string_view > && !std::same_as< T, String >;

} // namespace Impl

/// An immutable string value in one word. Any bytes; not terminated.
///
/// Up to seven bytes live in the word itself. Longer text lives in a shared block that also keeps
/// its hash: a copy takes a reference, never the bytes, and hashing again costs nothing.
///
///    short   | size<<1 | 1 | b0 b1 b2 b3 b4 b5 b6 |
///    long    | address of { references, hash, size, bytes... }  (lowest bit 0) |
///
/// Thread     a value may be used by one thread at a time; copies are independent
/// Invariant  a text has one representation: equal words mean equal text, and a short and a long
///            string always differ
class VELO_PLATFORM_EXPORT String {
 public:
   static constexpr std::size_t kShortSize = 7;

   String() : word_( kShortTag ) {}
   /// Copies the bytes of `text`, which may be a null view.
   String( std::string_view text );
   String( const char * text ) : String( std::string_view( text ) ) {}
   String( const std::string & text ) : String( std::string_view( text ) ) {}
   String( const String & other ) : word_( other.word_ ) {
      if ( !isShort() ) { block()->refs.increment(); }
   }
   String( String && other ) noexcept : word_( std::exchange( other.word_, kShortTag ) ) {}
   String & operator=( String other ) noexcept {
      std::swap( word_, other.word_ );
      return *this;
   }
   ~String() {
      if ( !isShort() && block()->refs.decrement() ) { free( block() ); }
   }

   std::size_t size() const { return isShort() ? ( word_ & 0xff ) >> 1 : block()->size; }
   bool empty() const { return word_ == kShortTag; }

   /// Not terminated. Valid while this value lives and is not assigned to.
   const char * data() const {
      return isShort() ? reinterpret_cast< const char * >( &word_ ) + 1 : block()->bytes();
   }
   std::string_view view() const { return { data(), size() }; }
   operator std::string_view() const { return view(); }

   /// 64-bit hash of the text with the process seed mixed in. O(1).
   std::uint64_t hash() const {
      return isShort() ? Impl::foldedMultiply( word_ ^ processSeed_, kHashFactor ) : block()->hash;
   }

   friend bool operator==( const String & a, const String & b ) {
      return a.word_ == b.word_ || ( !a.isShort() && !b.isShort() && a.equalsLong( b ) );
   }

   /// Byte-wise, bytes as unsigned numbers.
   friend std::strong_ordering operator<=>( const String & a, const String & b ) {
      return a.view().compare( b.view() ) <=> 0;
   }

   /// The same with any other kind of text, of which no `String` is made.
   template< Impl::OtherText Text >
   friend bool operator==( const String & a, const Text & b ) {
      return a.view() == std::string_view( b );
   }
   template< Impl::OtherText Text >
   friend std::strong_ordering operator<=>( const String & a, const Text & b ) {
      return a.view().compare( std::string_view( b ) ) <=> 0;
   }

   static constexpr bool kRelocatable = true;

   friend VELO_PLATFORM_EXPORT String operator+( const String & a, const String & b );
   friend VELO_PLATFORM_EXPORT std::ostream & operator<<( std::ostream & os, const String & s );

 private:
   static_assert( std::endian::native == std::endian::little, "the short form needs byte 0 low" );
   static constexpr std::uint64_t kShortTag = 1;
   static constexpr std::uint64_t kHashFactor = 0xa0761d6478bd642f;

   /// Set before ordinary static objects, some of which are strings, are constructed.
   static std::uint64_t processSeed_;
   [[gnu::constructor( 101 )]] static void takeProcessSeed();

   struct Block {
      explicit Block( std::size_t bytesToCome ) : size( bytesToCome ) {}

      Impl::RefCount refs;
      std::uint64_t hash = 0;
      const std::size_t size;
      char * bytes() { return reinterpret_cast< char * >( this + 1 ); }
   };

   bool isShort() const { return word_ & kShortTag; }
   Block * block() const { return reinterpret_cast< Block * >( word_ ); }
   bool equalsLong( const String & other ) const;

   /// A fresh block of `size` bytes, to be filled and then sealed with its hash.
   static Block * allocate( std::size_t size );
   static void free( Block * block );
   void seal();

   std::uint64_t word_;
};

} // namespace Lumo

template<>
struct fmt::formatter< Lumo::String > : fmt::formatter< fmt::string_view > {
   template< class Context >
   auto format( const Lumo::String & s, Context & context ) const {
      return fmt::formatter< fmt::string_view >::format( { s.data(), s.size() }, context );
   }
};
