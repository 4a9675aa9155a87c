#include "Keldb/Keldb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Ptr.h"
#include "Quon/Exceptions.h"

namespace Keldb {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

class Directory final : public Quon::Entity {
 public:
   const Quon::TypeData & typeData() const override {
      static constexpr Quon::TypeData data{ "Quon::Dir", {} };
      return data;
   }
};

AllMountFlags flagsOf( std::string_view mode ) {
   Mount mount( "routing", "Quon::Dir" );
   mount.handleFlags( mode );
   return mount.flags();
}

TEST( Mount, AModeStringSetsTheFlagsOfItsLetters ) {
   EXPECT_EQ( flagsOf( "" ), AllMountFlags( 0 ) );
   EXPECT_EQ( flagsOf( "r" ).value(), 1 );
   EXPECT_EQ( flagsOf( "w" ).value(), 2 );
   EXPECT_EQ( flagsOf( "i" ).value(), 4 );
   EXPECT_EQ( flagsOf( "wi" ), flagsOf( "iw" ) );
   EXPECT_TRUE( flagsOf( "wi" ).has( MountFlag::write ) );
   EXPECT_TRUE( flagsOf( "wi" ).has( MountFlag::initialize ) );
   EXPECT_FALSE( flagsOf( "wi" ).has( MountFlag::read ) );
}

TEST( Mount, AModeStringAddsToTheFlagsUntilTheyAreCleared ) {
   Mount mount( "routing", "Quon::Dir" );
   mount.handleFlags( "r" );
   mount.handleFlags( "w" );
   EXPECT_EQ( mount.flags(), flagsOf( "rw" ) );
   mount.flagsIs( AllMountFlags( 0 ) );
   EXPECT_EQ( mount.flags(), flagsOf( "" ) );
}

TEST( Mount, AnUnknownLetterIsRefusedAndChangesNothing ) {
   Mount mount( "routing", "Quon::Dir" );
   mount.handleFlags( "w" );
   EXPECT_THAT( [&] { mount.handleFlags( "rx" ); },
                ThrowsMessage< Quon::RangeException >(
                   "Unknown letter 'x' in mount mode \"rx\": known are r (read), w (write), "
                   "i (initialize)" ) );
   EXPECT_EQ( mount.flags(), flagsOf( "w" ) );
}

TEST( Mount, FlagsThatDoNotExistAreRefused ) {
   EXPECT_EQ( AllMountFlags( 7 ).value(), 7 );
   EXPECT_THAT( [] { AllMountFlags( 8 ); }, ThrowsMessage< Quon::DenseEnumBoolSetRangeException >(
                                               HasSubstr( "Keldb::AllMountFlags" ) ) );
}

TEST( MountGroup, RecordsMountsInTheOrderInWhichTheyAreAskedFor ) {
   const auto group = Lumo::makeNode< MountGroup >();
   const Mount status( "routing/status", "Routing::Status", flagsOf( "r" ) );
   group->doMount( status );
   group->doMountPath( "routing/config" );
   EXPECT_THAT( group->mounts(), ElementsAre( status, Mount( "routing/config" ) ) );
   EXPECT_FALSE( group->mounts()[0].byPathAlone() );
   EXPECT_TRUE( group->mounts()[1].byPathAlone() );
}

TEST( EntityManager, ReturnsTheEntityAtAPathOrNull ) {
   const auto entities = Lumo::makeNode< EntityManager >();
   const auto directory = Lumo::makeNode< Directory >(), other = Lumo::makeNode< Directory >();
   EXPECT_EQ( entities->getEntity( "routing" ), nullptr );
   entities->entityIs( "routing", directory );
   EXPECT_EQ( entities->getEntity( "routing" ), directory );
   EXPECT_EQ( entities->getEntity( "rout" ), nullptr );
   entities->entityIs( "routing", other );
   EXPECT_EQ( entities->getEntity( "routing" ), other );
   EXPECT_EQ( directory->references(), 1u );
   entities->entityIs( "routing", nullptr );
   EXPECT_EQ( entities->getEntity( "routing" ), nullptr );
}

} // namespace
} // namespace Keldb
