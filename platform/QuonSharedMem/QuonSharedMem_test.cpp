#include "QuonSharedMem/QuonSharedMem.h"

#include <gtest/gtest.h>

#include "Lumo/Ptr.h"

namespace QuonSharedMem {
namespace {

class Status final : public Quon::Entity {
 public:
   const Quon::TypeData & typeData() const override {
      static constexpr Quon::TypeData data{ "Status", {} };
      return data;
   }
};

class SharedEntities : public testing::Test {
 protected:
   SharedEntities() { entities->entityIs( "status", status ); }

   Lumo::Ptr< EntityManager > entities = Lumo::makeNode< EntityManager >();
   Lumo::Ptr< Status > status = Lumo::makeNode< Status >();
};

using SharedEntitiesDeathTest = SharedEntities;

TEST( SharedMountGroup, RecordsMountsInTheOrderInWhichTheyAreAskedFor ) {
   const auto group = Lumo::makeNode< MountGroup >();
   group->doMount( "a", "A", MountInfo::forReader() );
   group->doMount( "b", "B", {} );
   ASSERT_EQ( group->mounts().size(), 2u );
   EXPECT_EQ( group->mounts()[0].path, "a" );
   EXPECT_EQ( group->mounts()[0].entityType, "A" );
   EXPECT_TRUE( group->mounts()[0].info.reader );
   EXPECT_EQ( group->mounts()[1].path, "b" );
   EXPECT_FALSE( group->mounts()[1].info.reader );
}

TEST_F( SharedEntities, AreFoundByPath ) {
   EXPECT_EQ( entities->getEntity( "status" ), status );
   EXPECT_EQ( entities->getEntity( "other" ), nullptr );
   entities->entityIs( "status", nullptr );
   EXPECT_EQ( entities->getEntity( "status" ), nullptr );
   EXPECT_EQ( status->references(), 1u );
}

TEST_F( SharedEntities, AreSafeToReadUnlessOneIsBeingWritten ) {
   EXPECT_TRUE( entities->accessIsSafe() );
   entities->assertSafeToAccess( status, "status" );
   entities->beingWrittenIs( "other", true );
   EXPECT_FALSE( entities->accessIsSafe() );
   entities->assertSafeToAccess( status, "status" );
   entities->assertSafeToAccess( nullptr, "other" );
   entities->beingWrittenIs( "other", false );
   EXPECT_TRUE( entities->accessIsSafe() );
}

TEST_F( SharedEntitiesDeathTest, ReadingOneThatIsBeingWrittenIsFatal ) {
   entities->beingWrittenIs( "status", true );
   EXPECT_DEATH( entities->assertSafeToAccess( status, "status" ),
                 "the entity at status is being written and must not be read now" );
}

} // namespace
} // namespace QuonSharedMem
