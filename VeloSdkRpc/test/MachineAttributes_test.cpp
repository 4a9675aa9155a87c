#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/test/BacklogMachineTest.h"
#include "VeloSdkRpc/test/BothMachinesTest.h"

/// What people who look at the machines find: types, attributes, settings.

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;

template< class Machine >
class MachineAttributesTest : public BothMachinesTest< Machine > {};
TYPED_TEST_SUITE( MachineAttributesTest, BothMachines );

TYPED_TEST( MachineAttributesTest, TheRootAndThePolicyMapMachinesNameTheirAttributesInOrder ) {
   this->grow( 1, 0 );
   this->startSynchronous();
   const std::string space = std::string( "VeloSdkRpc::IlexCode::" ) + TypeParam::kName + "::";
   const Quon::TypeData & root = this->root().typeData();
   EXPECT_EQ( root.typeName, space + TypeParam::kRootName );
   EXPECT_THAT(
      root.attributeNames,
      ElementsAre( "parent", "en", "task0", "inputScanState0", "inputScanBookmark0",
                   "childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst" ) );
   const auto child = this->child( "p0" );
   EXPECT_EQ( child->typeData().typeName, space + TypeParam::kChildName );
   const auto names = child->typeData().attributeNames;
   ASSERT_GE( names.size(), 4U );
   EXPECT_THAT( std::vector( names.begin(), names.begin() + 4 ),
                ElementsAre( "parent", "en", "inputScanState0", "inputScanBookmark0" ) );
}

TYPED_TEST( MachineAttributesTest, TheSettingsOfTheControlCanBeRead ) {
   this->sm = TypeParam::make( *this, Ivx::SmControl( this->loop.scheduler(), 7, "seen", 1 ) );
   EXPECT_EQ( this->sm->taskName(), "seen" );
   EXPECT_EQ( this->sm->taskPriority(), 7 );
   EXPECT_EQ( this->sm->scheduler(), this->loop.scheduler() );
   EXPECT_EQ( this->sm->qtHandle(), Lumo::Platform::getDebugHandler( "seen" ) );
   static_assert( TypeParam::Sm::defaultSynchronous() );
}

TYPED_TEST( MachineAttributesTest, WithoutItsRecordOfTheScanAMachineWithTasksIsNotIdle ) {
   this->startAsynchronous();
   this->loop.runUntilIdle();
   ASSERT_TRUE( this->sm->idle() );
   this->sm->inputSmScanStateIs( nullptr );
   EXPECT_FALSE( this->sm->inputSmScanState() );
   EXPECT_FALSE( this->sm->inputScan() );
   EXPECT_FALSE( this->sm->idle() );
}

TYPED_TEST( MachineAttributesTest, LettingGoOfAPolicyMapThatIsNotThereChangesNothing ) {
   this->grow( 1, 1 );
   this->startSynchronous();
   this->root().childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConstDel(
      PolicyMapKey( "nobody's" ) );
   EXPECT_TRUE( this->child( "p0" ) );
}

class BacklogMachineAttributesTest : public BacklogMachineTest {};

TEST_F( BacklogMachineAttributesTest, TheMachineNamesItsAttributesInOrder ) {
   start( kSynchronous );
   EXPECT_EQ( sm->typeData().typeName, "VeloSdkRpc::PbrCountersBacklogSm" );
   EXPECT_THAT(
      sm->typeData().attributeNames,
      ElementsAre(
         "root", "backlog", "shortKeys", "inputSmScanState", "outputState", "rootSm0",
         "backlogBacklogOutputSeen", "backlogBacklogOutputReconciliationTask",
         "backlogBacklogOutputBookmark", "shortKeysNovelKeyOutputSeen",
         "shortKeysNovelKeyOutputReconciliationTask", "shortKeysNovelKeyOutputBookmark",
         "backlogBacklogOutputReconciling", "backlogBacklogOutputUseBookmark",
         "shortKeysNovelKeyOutputReconciling", "shortKeysNovelKeyOutputUseBookmark",
         "handleBacklogBacklogOutputInputReady", "handleShortKeysNovelKeyOutputInputReady",
         "handleShortKeysNextKeyOutputInputReady", "handleShortKeysShortKeyOutputInputReady",
         "doDeleteAll", "ilexControl", "scheduler", "taskName", "taskPriority", "synchronous",
         "defaultSynchronous", "priority", "idle", "ready", "initialScanDone",
         "handleInitialScanDone", "initialized", "handleInitialized" ) );
}

TEST_F( BacklogMachineAttributesTest, TheMachinesBelowTheRootNameTheirAttributesInOrder ) {
   tree.addClass( "p", "A" );
   start( kSynchronous );
   EXPECT_THAT( child( "p" )->typeData().attributeNames,
                ElementsAre( "parent", "en", "inputScanState0", "inputScanBookmark0",
                             "childSmClassCountersPolicyMapCountersCountersDataPtrConst" ) );
   const auto machine = classMachine( "p", "A" );
   EXPECT_EQ( machine->typeData().typeName,
              "VeloSdkRpc::IlexCode::PbrCountersBacklogSm::ClassCountersSm2" );
   EXPECT_THAT( machine->typeData().attributeNames,
                ElementsAre( "parent", "en", "inputScanState0" ) );
}

class KeyTableMachineAttributesTest : public MachineTest< KeyTableMachine > {};

TEST_F( KeyTableMachineAttributesTest, AMachineOfAPolicyMapHasNothingBelowIt ) {
   tree.addPolicy( "p" );
   start( kSynchronous );
   EXPECT_THAT( child( "p" )->typeData().attributeNames,
                ElementsAre( "parent", "en", "inputScanState0", "inputScanBookmark0" ) );
}

} // namespace
} // namespace VeloSdkRpc::test
