#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/ThrowingAssertionHandler.h"
#include "VeloSdkRpc/detail/IlexPrint.h"
#include "VeloSdkRpc/test/BacklogMachineTest.h"

/// The arguments of the backlog machine, and the last step of its rules.

namespace VeloSdkRpc::test {
namespace {

using detail::ilexPrint;
using testing::ElementsAre;
using testing::IsEmpty;

class BacklogSmOutputTest : public BacklogMachineTest {};

TEST_F( BacklogSmOutputTest, TheArgumentsAreCheckedInOrder ) {
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( pbrCountersBacklogSmFactory( nullptr, nullptr, nullptr, {} ),
                 Lumo::AssertionThrown );
   EXPECT_THROW( pbrCountersBacklogSmFactory( tree.root, nullptr, nullptr, {} ),
                 Lumo::AssertionThrown );
   EXPECT_THROW( pbrCountersBacklogSmFactory( tree.root, backlog, nullptr, {} ),
                 Lumo::AssertionThrown );
   std::vector< std::string > conditions;
   for ( const auto & failure : assertions.failures() ) {
      conditions.push_back( failure.condition() );
   }
   const std::string text =
      " && \"Pointer SM args cannot be null unless they are marked Optional\"";
   EXPECT_THAT( conditions,
                ElementsAre( "root()" + text, "backlog()" + text, "shortKeys()" + text ) );
}

TEST_F( BacklogSmOutputTest, ARecordIsFiledUnderItsKey ) {
   start( kSynchronous );
   const PbrCounters value( 7, longKey( "p", "A" ), nullptr, true );
   Lumo::CapturingTraceSink traces;
   sm->writeBacklog( 7, &value );
   EXPECT_EQ( record( 7 ), value );
   EXPECT_TRUE( traces.has( 7, "into( backlog.backlog[ key ] ): inserting k1=7, value=" +
                                  ilexPrint( value ) ) );
}

TEST_F( BacklogSmOutputTest, AnAbsentRecordWithdrawsWhatIsPending ) {
   start( kSynchronous );
   backlog->backlogIs( PbrCounters( 7, longKey( "p", "A" ), nullptr, true ) );
   Lumo::CapturingTraceSink traces;
   sm->writeBacklog( 7, nullptr );
   EXPECT_THAT( backlog->backlog(), IsEmpty() );
   EXPECT_THAT( textsAt( traces, 7 ),
                ElementsAre( "into( backlog.backlog[ key ] ): deleting k1=7" ) );
}

TEST_F( BacklogSmOutputTest, ARecordWithAnotherKeyInsideIsFatal ) {
   start( kSynchronous );
   const PbrCounters value( 8, longKey( "p", "A" ), nullptr, false );
   Lumo::ThrowingAssertionHandler assertions;
   EXPECT_THROW( sm->writeBacklog( 7, &value ), Lumo::AssertionThrown );
   EXPECT_EQ( assertions.failures().front().message(),
              "In \"into( backlog.backlog[ key ] )\" the value inserted in the into statement has "
              "internal key: 8, but the key specified in the into is: 7" );
   EXPECT_THAT( backlog->backlog(), IsEmpty() );
}

TEST_F( BacklogSmOutputTest, WhileReconcilingAWithdrawalIsRememberedAsSeenToo ) {
   backlog->backlogIs( PbrCounters( 7, longKey( "p", "A" ), nullptr, false ) );
   loop.endlessSlices();
   start( kAsynchronous );
   ASSERT_TRUE( sm->backlogBacklogOutputReconciling() );
   sm->writeBacklog( 7, nullptr );
   EXPECT_TRUE(
      sm->backlogBacklogOutputSeen()[IlexCode::PbrCountersBacklogSm::BacklogBacklogOutputKeyType(
         7 )] );
}

} // namespace
} // namespace VeloSdkRpc::test
