#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "Lumo/Export.h"
#include "Lumo/String.h"

namespace Quon {

/// A cursor over a value's text form, from which values parse themselves.
///
/// Knows where it stands and which attribute is being read, so that every error names both. It is
/// strict: it accepts exactly what printing makes (no other spacing, quotes, escapes or spellings
/// of a number), so a text that parses is the one text of its value. See Text.h for the grammar.
///
/// Owner      the caller; the text must outlive the cursor
/// Thread     one at a time
/// Invariant  never reads outside of the text, whatever the text is; an operation that fails
///            throws `ParseError` and leaves the cursor in front of what it could not read
class VELO_PLATFORM_EXPORT CharRange {
 public:
   /// No text form nests deeper than this; it bounds the recursion over types that contain
   /// themselves.
   static constexpr unsigned kMaxNesting = 64;

   explicit CharRange( std::string_view text ) : text_( text ) {}
   CharRange( const CharRange & ) = delete;
   CharRange & operator=( const CharRange & ) = delete;

   /// Offset in bytes of the next character.
   std::size_t position() const { return position_; }
   std::string_view rest() const { return text_.substr( position_ ); }

   /// Steps over `literal` if it comes next.
   bool accept( std::string_view literal );

   /// Steps over `literal`, which must come next.
   void expect( std::string_view literal );
   void expectEnd() const;

   /// `True` or `False`.
   bool parseBool();

   /// A string literal in single quotes; any bytes.
   Lumo::String parseString();

   /// A decimal number that an `I` can hold.
   template< std::integral I >
   I parseInteger() {
      using Limits = std::numeric_limits< I >;
      if constexpr ( std::signed_integral< I > ) {
         return static_cast< I >( parseSigned( Limits::min(), Limits::max() ) );
      } else {
         return static_cast< I >( parseUnsigned( Limits::max() ) );
      }
   }

   /// Throws: `expected` was not found here.
   [[noreturn]] void fail( std::string_view expected ) const;

   /// Throws: what was read from `position` on is not allowed.
   [[noreturn]] void failAt( std::size_t position, std::string_view reason ) const;

   /// While it lives, `name` is the innermost attribute being read.
   class VELO_PLATFORM_EXPORT AttributeScope {
    public:
      AttributeScope( CharRange & range, std::string_view name );
      ~AttributeScope() { range_.innermost_ = outer_; }
      AttributeScope( const AttributeScope & ) = delete;
      AttributeScope & operator=( const AttributeScope & ) = delete;

    private:
      friend class CharRange;
      CharRange & range_;
      const std::string_view name_;
      const AttributeScope * const outer_;
      const unsigned depth_;
   };

 private:
   std::int64_t parseSigned( std::int64_t lowest, std::int64_t highest );
   std::uint64_t parseUnsigned( std::uint64_t highest );
   template< class Wide >
   Wide parseNumber( Wide lowest, Wide highest );
   char parseEscape();
   std::string path() const;

   const std::string_view text_;
   std::size_t position_ = 0;
   const AttributeScope * innermost_ = nullptr;
};

} // namespace Quon
