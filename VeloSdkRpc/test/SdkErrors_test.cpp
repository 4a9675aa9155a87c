// The library throws, this program catches: every exception here has crossed the border between
// them, and its type was found by the type information that both share.

#include "VeloSdkRpc/SdkErrors.h"

#include <exception>
#include <limits>
#include <string>
#include <type_traits>
#include <typeinfo>

#include <gtest/gtest.h>

namespace velo {
namespace {

const std::string kShort = "no";
const std::string kLong( 4096, 'x' );

/// Whether what `raising` throws can be caught as a `Base`.
template< class Base, class Raising >
bool caughtAs( const Raising & raising ) {
   try {
      raising();
   } catch ( const Base & ) { return true; } catch ( ... ) {
   }
   return false;
}

template< class Error >
class SdkError : public testing::Test {
 protected:
   /// Raised by code that knows no more than that it is an error.
   static void raise( const error & problem ) { problem.raise(); }

   static Error copyOf( const Error & problem ) { return problem; }
};

using Concrete =
   testing::Types< invalid_argument_error, invalid_range_error, configuration_error,
                   unconfigured_agent_error, unsupported_error, no_scoped_lock_obtained_error >;
TYPED_TEST_SUITE( SdkError, Concrete );

TYPED_TEST( SdkError, IsThrownAsItsMostDerivedClass ) {
   try {
      this->raise( TypeParam( kShort ) );
      FAIL() << "nothing was thrown";
   } catch ( const error & caught ) { EXPECT_EQ( typeid( caught ), typeid( TypeParam ) ); }
}

TYPED_TEST( SdkError, KeepsItsClassThroughAnyNumberOfRaises ) {
   std::exception_ptr last;
   const TypeParam first( kLong );
   const error * problem = &first;
   for ( int n = 0; n < 10; ++n ) {
      try {
         this->raise( *problem );
         FAIL() << "nothing was thrown";
      } catch ( const error & caught ) {
         last = std::current_exception(); // keeps `caught` for the next round
         problem = &caught;
      }
      EXPECT_EQ( typeid( *problem ), typeid( TypeParam ) );
      EXPECT_EQ( problem->what(), kLong );
   }
}

TYPED_TEST( SdkError, IsCaughtByEachBase ) {
   const auto raising = [this] { this->raise( TypeParam( kShort ) ); };
   EXPECT_TRUE( caughtAs< TypeParam >( raising ) );
   EXPECT_TRUE( caughtAs< error >( raising ) );
   EXPECT_TRUE( caughtAs< std::exception >( raising ) );
   EXPECT_EQ( caughtAs< invalid_argument_error >( raising ),
              (std::is_base_of_v< invalid_argument_error, TypeParam >));
   EXPECT_EQ( caughtAs< configuration_error >( raising ),
              (std::is_base_of_v< configuration_error, TypeParam >));
}

TYPED_TEST( SdkError, IsNotCaughtAsItsDescendantOrItsSibling ) {
   const auto raising = [this] { this->raise( TypeParam( kShort ) ); };
   EXPECT_EQ( caughtAs< invalid_range_error >( raising ),
              (std::is_same_v< invalid_range_error, TypeParam >));
   EXPECT_EQ( caughtAs< unconfigured_agent_error >( raising ),
              (std::is_same_v< unconfigured_agent_error, TypeParam >));
   EXPECT_EQ( caughtAs< unsupported_error >( raising ),
              (std::is_same_v< unsupported_error, TypeParam >));
}

TYPED_TEST( SdkError, SaysItsMessageAndNothingElse ) {
   for ( const std::string & message : { std::string(), kShort, kLong } ) {
      const TypeParam problem( message );
      EXPECT_EQ( problem.what(), message );
      EXPECT_EQ( this->copyOf( problem ).what(), message );
      TypeParam assigned( "other" );
      assigned = problem;
      EXPECT_EQ( assigned.what(), message );
      try {
         this->raise( problem );
         FAIL() << "nothing was thrown";
      } catch ( const error & caught ) { EXPECT_EQ( caught.what(), message ); }
   }
}

TYPED_TEST( SdkError, SaysTheSameHoweverOftenAndWhateverBecomesOfItsCopies ) {
   const TypeParam problem( kLong );
   const char * const said = problem.what();
   { const TypeParam copy = this->copyOf( problem ); }
   EXPECT_EQ( problem.what(), said );
   EXPECT_EQ( said, kLong );
}

TYPED_TEST( SdkError, PanicThrowsItAsItIs ) {
   EXPECT_TRUE( caughtAs< TypeParam >( [] { panic( TypeParam( kShort ) ); } ) );
}

TEST( SdkErrorCopies, HaveEveryMember ) {
   const invalid_range_error problem( kShort, "weight", 77 );
   const invalid_range_error copy = problem;
   invalid_range_error assigned( "other" );
   assigned = problem;
   for ( const invalid_range_error & same : { copy, assigned } ) {
      EXPECT_EQ( same.what(), kShort );
      EXPECT_EQ( same.argument(), "weight" );
      EXPECT_EQ( same.value(), 77U );
   }
}

static_assert( std::is_abstract_v< error > );
static_assert( std::is_base_of_v< error, unsupported_error > );
static_assert( std::is_base_of_v< error, no_scoped_lock_obtained_error > );

/// `problem` as it arrives at a client that catches it as a `Base`, which must succeed.
template< class Base, class Error, class Look >
void look( const Error & problem, const Look & lookAt ) {
   bool looked = false;
   try {
      static_cast< const error & >( problem ).raise();
   } catch ( const Base & caught ) {
      lookAt( dynamic_cast< const Error & >( caught ) );
      looked = true;
   }
   EXPECT_TRUE( looked );
}

TEST( SdkErrorParts, ARangeErrorCaughtAsAnArgumentErrorKeepsItsValue ) {
   for ( const std::uint64_t value : { std::uint64_t{ 0 }, std::uint64_t{ 0x8000000000000001 },
                                       std::numeric_limits< std::uint64_t >::max() } ) {
      look< invalid_argument_error >( invalid_range_error( kShort, "weight", value ),
                                      [&]( const invalid_range_error & caught ) {
                                         EXPECT_EQ( caught.what(), kShort );
                                         EXPECT_EQ( caught.argument(), "weight" );
                                         EXPECT_EQ( caught.value(), value );
                                      } );
   }
}

TEST( SdkErrorParts, TheSecondStringIsCarriedToo ) {
   look< error >( invalid_argument_error( kShort, kLong ),
                  []( const auto & caught ) { EXPECT_EQ( caught.argument(), kLong ); } );
   look< configuration_error >( unconfigured_agent_error( kShort, "Bgp" ),
                                []( const auto & caught ) { EXPECT_EQ( caught.agent(), "Bgp" ); } );
   look< error >( unsupported_error( kLong, "ucmp" ),
                  []( const auto & caught ) { EXPECT_EQ( caught.feature(), "ucmp" ); } );
}

TEST( SdkErrorParts, AreEmptyWhenOnlyTheMessageIsGiven ) {
   EXPECT_EQ( invalid_argument_error( kShort ).argument(), "" );
   EXPECT_EQ( invalid_range_error( kShort ).argument(), "" );
   EXPECT_EQ( invalid_range_error( kShort ).value(), 0U );
   EXPECT_EQ( unconfigured_agent_error( kShort ).agent(), "" );
   EXPECT_EQ( unsupported_error( kShort ).feature(), "" );
}

/// A class of the client's own in the family.
class ClientError final : public unsupported_error {
 public:
   using unsupported_error::unsupported_error;
   [[noreturn]] void raise() const override { throw ClientError( *this ); }
};

TEST( SdkErrorParts, AClassOfTheClientsOwnIsRaisedByTheLibraryAsWhatItIs ) {
   EXPECT_TRUE( caughtAs< ClientError >( [] { panic( ClientError( kShort ) ); } ) );
   EXPECT_TRUE( caughtAs< unsupported_error >( [] { panic( ClientError( kShort ) ); } ) );
}

/// Breaks the contract.
class ReturningError final : public unsupported_error {
 public:
   using unsupported_error::unsupported_error;
   void raise() const override {}
};

TEST( SdkErrorDeathTest, PanicNeverReturns ) {
   EXPECT_DEATH( panic( ReturningError( kShort ) ), "terminate called" );
}

} // namespace
} // namespace velo
