#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "Lumo/AllocationCount.h"
#include "Lumo/String.h"

namespace Lumo {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr std::size_t kLongest = 40;

/// A text of `size` bytes that are all different.
std::string textOf( std::size_t size ) {
   std::string text( size, '\0' );
   for ( std::size_t i = 0; i < size; ++i ) { text[i] = static_cast< char >( i * 7 + size ); }
   return text;
}

std::uint64_t allocationsOf( const std::function< void() > & work ) {
   const std::uint64_t before = allocationCount();
   work();
   return allocationCount() - before;
}

TEST( StringTest, ADefaultStringIsEmpty ) {
   const String empty;
   EXPECT_TRUE( empty.empty() );
   EXPECT_EQ( empty.size(), 0U );
   EXPECT_EQ( empty, "" );
}

TEST( StringTest, NothingInAnyFormMakesAnEmptyString ) {
   EXPECT_EQ( String( std::string_view() ), String() );
   EXPECT_EQ( String( "" ), String() );
   EXPECT_EQ( String( ""s ), String() );
}

TEST( StringTest, EverySizeKeepsItsBytes ) {
   for ( std::size_t size = 0; size <= kLongest; ++size ) {
      const std::string text = textOf( size );
      const String string = text;
      EXPECT_EQ( string.size(), size );
      EXPECT_EQ( string.view(), text );
      EXPECT_EQ( string.empty(), size == 0 );
   }
}

TEST( StringTest, EveryByteIsAllowedEverywhere ) {
   for ( int byte = 0; byte < 256; ++byte ) {
      for ( const std::size_t size : { 1U, 7U, 8U, 20U } ) {
         const std::string text( size, static_cast< char >( byte ) );
         EXPECT_EQ( String( text ).view(), text );
      }
   }
   EXPECT_NE( String( "a\0"sv ), String( "a" ) );
   EXPECT_NE( String( "\0"sv ), String() );
}

TEST( StringTest, SevenBytesLiveInPlaceAndEightInABlock ) {
   const std::string seven = textOf( 7 ), eight = textOf( 8 );
   EXPECT_EQ( allocationsOf( [&] { const String s = seven; } ), 0U );
   EXPECT_EQ( allocationsOf( [&] { const String s = eight; } ), 1U );
   EXPECT_EQ( sizeof( String ), 8U );
}

TEST( StringTest, ACopySharesTheBytesOfALongString ) {
   const String original = textOf( 100 );
   EXPECT_EQ( allocationsOf( [&] {
                 const String copy = original;
                 String assigned;
                 assigned = copy;
                 EXPECT_EQ( assigned.data(), original.data() );
              } ),
              0U );
   EXPECT_EQ( original.view(), textOf( 100 ) );
}

TEST( StringTest, ACopyOutlivesItsOriginal ) {
   for ( const std::size_t size : { 3U, 30U } ) {
      String copy;
      {
         const String original = textOf( size );
         copy = original;
      }
      EXPECT_EQ( copy.view(), textOf( size ) );
   }
}

TEST( StringTest, AMoveTakesTheTextAndLeavesNothing ) {
   for ( const std::size_t size : { 3U, 30U } ) {
      String from = textOf( size );
      String to = std::move( from );
      EXPECT_EQ( to.view(), textOf( size ) );
      EXPECT_TRUE( from.empty() ); // NOLINT: promised
      from = std::move( to );
      EXPECT_EQ( from.view(), textOf( size ) );
   }
}

TEST( StringTest, AssigningAStringToItselfChangesNothing ) {
   for ( const std::size_t size : { 3U, 30U } ) {
      String string = textOf( size );
      auto & alias = string;
      string = alias;
      EXPECT_EQ( string.view(), textOf( size ) );
      string = std::move( alias );
      EXPECT_EQ( string.view(), textOf( size ) );
      string = string.view();
      EXPECT_EQ( string.view(), textOf( size ) );
   }
}

TEST( StringTest, AStringMayBeAssignedAPartOfItself ) {
   String string = "class-map/entry";
   string = string.view().substr( 10 );
   EXPECT_EQ( string, "entry" );
}

TEST( StringTest, ConcatenationJoinsTextsOfAnySizes ) {
   for ( std::size_t a = 0; a <= 10; ++a ) {
      for ( std::size_t b = 0; b <= 10; ++b ) {
         const std::string left = textOf( a ), right = textOf( b );
         const String joined = String( left ) + String( right );
         EXPECT_EQ( joined.view(), left + right );
         EXPECT_EQ( joined, String( left + right ) );
         EXPECT_EQ( joined.hash(), String( left + right ).hash() );
      }
   }
}

TEST( StringTest, ConcatenationTakesOtherTextsToo ) {
   const String name = "task";
   EXPECT_EQ( name + "-0", "task-0" );
   EXPECT_EQ( "my-long-" + name, "my-long-task" );
   EXPECT_EQ( name + "-with-a-suffix"s, "task-with-a-suffix" );
}

TEST( StringTest, ConcatenationWithNothingSharesTheBytes ) {
   const String text = textOf( 30 );
   EXPECT_EQ( ( text + "" ).data(), text.data() );
   EXPECT_EQ( ( String() + text ).data(), text.data() );
}

TEST( StringTest, ComparisonWithOtherTextsMakesNoString ) {
   const std::string text = "a text that is not short";
   const String string = text;
   EXPECT_EQ( allocationsOf( [&] {
                 EXPECT_TRUE( string == text );
                 EXPECT_TRUE( text == string );
                 EXPECT_TRUE( string == std::string_view( text ) );
                 EXPECT_TRUE( string == "a text that is not short" );
                 EXPECT_TRUE( "a text that is not shorter" != string );
                 EXPECT_TRUE( string < "b text that is not short" );
                 EXPECT_TRUE( "a text that is not" < string );
                 EXPECT_TRUE( string >= text );
              } ),
              0U );
}

TEST( StringTest, OrderIsBytewiseWithBytesAsUnsignedNumbers ) {
   const std::vector< String > ascending = { "",      "\0"sv, "A",    "a",
                                             "a\0"sv, "aa",   "b",    "bcdefghi",
                                             "\x7f",  "\x80", "\xff", "\xff-and-more" };
   for ( std::size_t i = 0; i < ascending.size(); ++i ) {
      for ( std::size_t j = 0; j < ascending.size(); ++j ) {
         EXPECT_EQ( ascending[i] <=> ascending[j], i <=> j ) << i << " and " << j;
      }
   }
}

TEST( StringTest, PrintsItsTextInStreamsAndFormats ) {
   const String name = "backlog\0!"sv;
   std::ostringstream os;
   os << name;
   EXPECT_EQ( os.str(), "backlog\0!"s );
   EXPECT_EQ( fmt::format( "{}|{:>5}", name, String( "x" ) ), "backlog\0!|    x"s );
}

TEST( StringThreadTest, ManyThreadsMayHoldCopiesOfOneText ) {
   const String text = textOf( 50 );
   std::vector< std::thread > threads;
   for ( int i = 0; i < 4; ++i ) {
      threads.emplace_back( [mine = text] {
         for ( int n = 0; n < 10000; ++n ) {
            const String copy = mine;
            ASSERT_EQ( copy.size(), 50U );
         }
      } );
   }
   for ( std::thread & thread : threads ) { thread.join(); }
   EXPECT_EQ( text.view(), textOf( 50 ) );
}

/// Texts that are often equal or share a prefix, of both representations.
rc::Gen< std::string > anyText() {
   const auto fewBytes = rc::gen::element( 'a', 'b', '\0', '\xff' );
   return rc::gen::mapcat( rc::gen::inRange< std::size_t >( 0, 12 ), [=]( std::size_t size ) {
      return rc::gen::container< std::string >( size, fewBytes );
   } );
}

RC_GTEST_PROP( StringProperty, ComparesAsStdStringDoes, () ) {
   const std::string a = *anyText(), b = *rc::gen::oneOf( anyText(), rc::gen::just( a ) );
   const String x = a, y = b;
   RC_ASSERT( ( x == y ) == ( a == b ) );
   RC_ASSERT( ( x != y ) == ( a != b ) );
   RC_ASSERT( ( x <=> y ) == ( a <=> b ) );
   RC_ASSERT( ( x == b ) == ( a == b ) );
   RC_ASSERT( ( x <=> b ) == ( a <=> b ) );
   RC_ASSERT( ( x.hash() == y.hash() ) == ( a == b ) );
}

RC_GTEST_PROP( StringProperty, AValueStaysWhatItIsWhateverHappensToItsCopies, () ) {
   struct Pair {
      String string;
      std::string model;
   };
   std::vector< Pair > pairs( 4 );
   for ( int steps = *rc::gen::inRange( 0, 60 ); steps > 0; --steps ) {
      auto & [to, toModel] = pairs[*rc::gen::inRange< std::size_t >( 0, pairs.size() )];
      auto & [from, fromModel] = pairs[*rc::gen::inRange< std::size_t >( 0, pairs.size() )];
      switch ( *rc::gen::inRange( 0, 4 ) ) {
      case 0:
         to = toModel = *anyText();
         break;
      case 1:
         to = from, toModel = fromModel;
         break;
      case 2:
         if ( fromModel.size() < 100 ) {
            to = to + from;
            toModel = std::string( toModel ) + fromModel;
         }
         break;
      default:
         if ( &to != &from ) {
            to = std::move( from );
            toModel = std::exchange( fromModel, {} );
         }
      }
      for ( const Pair & pair : pairs ) { RC_ASSERT( pair.string == pair.model ); }
   }
}

} // namespace
} // namespace Lumo
