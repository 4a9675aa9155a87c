#include "Keldb/Keldb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lumo/Ptr.h"
#include "Quon/Dir.h"
#include "Quon/Exceptions.h"

namespace Keldb {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

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
   const auto directory = Lumo::makeNode< Quon::Dir >(), other = Lumo::makeNode< Quon::Dir >();
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

TEST( EntityManager, APathGoesOnIntoDirectories ) {
   const auto entities = Lumo::makeNode< EntityManager >();
   const auto directory = Lumo::makeNode< Quon::Dir >();
   entities->entityIs( "routing/sdk", directory );
   const auto inner =
      Quon::entityCast< Quon::Dir >( directory->createEntity( "Quon::Dir", "bgp" ) );
   const auto weights = inner->createEntity( "Quon::Dir", "weights" );
   EXPECT_EQ( entities->getEntity( "routing/sdk/bgp" ), inner );
   EXPECT_EQ( entities->getEntity( "routing/sdk/bgp/weights" ), weights );
   for ( const char * nothing : { "routing/sdk/fib", "routing/sdk/bgp/weights/x", "routing/sdk/",
                                  "routing", "sdk/bgp", "/", "" } ) {
      EXPECT_EQ( entities->getEntity( nothing ), nullptr ) << nothing;
   }
}

TEST( EntityManager, WhatWasPutAtAPathComesBeforeWhatIsInADirectory ) {
   const auto entities = Lumo::makeNode< EntityManager >();
   const auto directory = Lumo::makeNode< Quon::Dir >();
   const auto put = Lumo::makeNode< Quon::Dir >();
   directory->createEntity( "Quon::Dir", "sdk" );
   entities->entityIs( "routing", directory );
   entities->entityIs( "routing/sdk", put );
   EXPECT_EQ( entities->getEntity( "routing/sdk" ), put );
}

TEST( EntityManager, KnowsWhatAMountByPathAloneMeans ) {
   const auto entities = Lumo::makeNode< EntityManager >();
   EXPECT_EQ( entities->pathType( "routing" ), nullptr );
   const Mount first( "routing", "Quon::Dir", flagsOf( "r" ) );
   const Mount second( "routing", "Routing::Status", flagsOf( "wi" ) );
   for ( const Mount & mount : { first, second } ) {
      entities->pathTypeIs( mount );
      ASSERT_TRUE( entities->pathType( "routing" ) );
      EXPECT_EQ( *entities->pathType( "routing" ), mount );
   }
   EXPECT_EQ( entities->pathType( "rout" ), nullptr );
}

TEST( EntityManager, AMountMakesWhatIsNotThereIfItAsksForThat ) {
   const auto entities = Lumo::makeNode< EntityManager >();
   entities->mount( Mount( "read", "Quon::Dir", flagsOf( "rw" ) ) );
   EXPECT_EQ( entities->getEntity( "read" ), nullptr );
   const Mount written( "written", "Quon::Dir", flagsOf( "wi" ) );
   entities->mount( written );
   const auto made = entities->getEntity( "written" );
   EXPECT_TRUE( Quon::entityCast< Quon::Dir >( made ) );
   entities->mount( written );
   EXPECT_EQ( entities->getEntity( "written" ), made );
   EXPECT_THROW( entities->mount( Mount( "other", "Test::NoSuchType", flagsOf( "wi" ) ) ),
                 Quon::EntityTypeException );
}

} // namespace
} // namespace Keldb
