#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VeloSdkRpc/PbrCountersMgr.h"
#include "VeloSdkRpc/test/Consumers.h"
#include "VeloSdkRpc/test/CountersTree.h"
#include "VeloSdkRpc/test/Loop.h"

namespace VeloSdkRpc::test {
namespace {

using testing::ElementsAre;

const Lumo::String kPath = "policyMap/counters/pbr";

class PbrCountersMgrTest : public testing::Test {
 protected:
   PbrCountersMgrTest() { shared->entityIs( kPath, tree.root ); }

   void mount() { mounts.mountAll(); }

   Loop loop;
   CountersTree tree;
   const Lumo::Ptr< Keldb::EntityManager > entities = Lumo::makeNode< Keldb::EntityManager >();
   const Lumo::Ptr< QuonSharedMem::EntityManager > shared =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   velo::mount_mgr mounts{ entities, shared };
   PbrPolicyCountersMgr mgr{ &mounts };
   Lumo::Ptr< ReconstructingConsumer > consumer = Lumo::makeNode< ReconstructingConsumer >();
};

TEST_F( PbrCountersMgrTest, AWatchingConsumerLearnsTheTreeAndEveryChange ) {
   tree.addClass( "edge", "web", 1 );
   tree.addClass( "edge", "voice", 2 );
   mount();
   EXPECT_TRUE( mgr.compressedKeyTableSm() );
   EXPECT_EQ( mgr.shortKeys()->nextKey(), 2U );
   mgr.startWatching( consumer );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   tree.addClass( "core", "bulk", 3 );
   tree.count( "edge", "web", 10 );
   tree.removeClass( "edge", "voice" );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   tree.removePolicy( "edge" );
   loop.runUntilIdle();
   EXPECT_EQ( consumer->contents(), tree.contents() );
   EXPECT_EQ( mgr.shortKeys()->nextKey(), 3U );
}

} // namespace
} // namespace VeloSdkRpc::test
