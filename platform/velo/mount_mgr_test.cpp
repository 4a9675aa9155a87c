#include "velo/mount_mgr.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Quon/Dir.h"
#include "Quon/EntityTypes.h"

namespace velo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

class MountProtocol : public testing::Test {
 protected:
   /// A handler that logs its calls, then does what it was given to do.
   class Handler final : public mount_handler {
    public:
      using Collect = std::function< void( Keldb::MountGroup &, QuonSharedMem::MountGroup & ) >;
      using Complete = std::function< void() >;

      Handler( MountProtocol & test, mount_mgr * mgr, const char * name, Collect collect,
               Complete complete )
         : mount_handler( mgr, name ),
           test_( test ),
           collect_( std::move( collect ) ),
           complete_( std::move( complete ) ) {}
      ~Handler() override = default;

      void doMounts( const Lumo::Ptr< Keldb::MountGroup > & mounts,
                     const Lumo::Ptr< QuonSharedMem::MountGroup > & sharedMemMounts ) override {
         test_.log.push_back( name() + " asks" );
         const Collect collect = collect_; // the work may destroy this handler
         if ( collect ) { collect( *mounts, *sharedMemMounts ); }
      }
      void onMountsComplete(
         const Lumo::Ptr< Keldb::EntityManager > & mounted,
         const Lumo::Ptr< QuonSharedMem::EntityManager > & sharedMemMounted ) override {
         EXPECT_EQ( mounted, test_.entities );
         EXPECT_EQ( sharedMemMounted, test_.sharedMemEntities );
         test_.log.push_back( name() + " is told" );
         const Complete complete = complete_;
         if ( complete ) { complete(); }
      }

    private:
      std::string name() const { return std::string( get_mount_point_name().view() ); }

      MountProtocol & test_;
      Collect collect_;
      Complete complete_;
   };

   std::unique_ptr< Handler > handler( const char * name, Handler::Collect collect = {},
                                       Handler::Complete complete = {} ) {
      return std::make_unique< Handler >( *this, mgr.get(), name, std::move( collect ),
                                          std::move( complete ) );
   }

   static Keldb::Mount mounted( const char * path, const char * type, std::string_view mode ) {
      Keldb::Mount mount( path, type );
      mount.handleFlags( mode );
      return mount;
   }
   static Keldb::Mount readable( const char * path, const char * type ) {
      return mounted( path, type, "r" );
   }

   /// Runs the protocol with one handler that asks for `mounts`, which must be refused.
   std::string refusalOf( Handler::Collect mounts ) {
      const auto asks = handler( "h", std::move( mounts ) );
      try {
         mgr->mountAll();
      } catch ( const mount_protocol_error & error ) {
         EXPECT_THAT( log, ElementsAre( "h asks" ) );
         return error.what();
      }
      return "not refused";
   }

   Lumo::Ptr< Keldb::EntityManager > entities = Lumo::makeNode< Keldb::EntityManager >();
   Lumo::Ptr< QuonSharedMem::EntityManager > sharedMemEntities =
      Lumo::makeNode< QuonSharedMem::EntityManager >();
   std::unique_ptr< mount_mgr > mgr = std::make_unique< mount_mgr >( entities, sharedMemEntities );
   std::vector< std::string > log;
};

TEST_F( MountProtocol, AllHandlersAskInOrderBeforeTheFirstIsTold ) {
   const auto a = handler( "a" ), b = handler( "b" ), c = handler( "c" );
   mgr->mountAll();
   EXPECT_THAT(
      log, ElementsAre( "a asks", "b asks", "c asks", "a is told", "b is told", "c is told" ) );
}

TEST_F( MountProtocol, AHandlerKnowsTheNameItWasRegisteredUnder ) {
   EXPECT_EQ( handler( "via" )->get_mount_point_name(), "via" );
   EXPECT_EQ( handler( "" )->get_mount_point_name(), "" );
}

TEST_F( MountProtocol, OneNameIsForOneHandlerWhileItLives ) {
   auto first = handler( "via" );
   EXPECT_THAT( [&] { handler( "via" ); }, ThrowsMessage< mount_protocol_error >(
                                              "there are two mount handlers called via" ) );
   first = nullptr;
   const auto second = handler( "via" ), nameless = handler( "" ), namelessToo = handler( "" );
   mgr->mountAll();
   EXPECT_THAT(
      log, ElementsAre( "via asks", " asks", " asks", "via is told", " is told", " is told" ) );
}

TEST_F( MountProtocol, RunsOnceEvenWhenTheRunFailed ) {
   const auto fails =
      handler( "fails", []( auto &, auto & ) { throw std::runtime_error( "no" ); } );
   const auto other = handler( "other" );
   EXPECT_THROW( mgr->mountAll(), std::runtime_error );
   EXPECT_THAT( [&] { mgr->mountAll(); },
                ThrowsMessage< mount_protocol_error >(
                   "the mount protocol runs once, and it has begun already" ) );
   EXPECT_THAT( log, ElementsAre( "fails asks" ) );
}

TEST_F( MountProtocol, AHandlerMustNotRunItAgain ) {
   const auto again = handler(
      "again", [&]( auto &, auto & ) { EXPECT_THROW( mgr->mountAll(), mount_protocol_error ); } );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "again asks", "again is told" ) );
}

TEST_F( MountProtocol, AHandlerThatComesTooLateIsRefused ) {
   mgr->mountAll();
   EXPECT_THAT( [&] { handler( "late" ); },
                ThrowsMessage< mount_protocol_error >(
                   "mount handler \"late\" comes after the mounts are complete" ) );
}

TEST_F( MountProtocol, AHandlerWithoutAManagerIsNeverCalled ) {
   const Handler alone( *this, nullptr, "alone", {}, {} );
   mgr->mountAll();
   EXPECT_THAT( log, IsEmpty() );
   EXPECT_EQ( alone.get_mount_point_name(), "alone" );
}

TEST_F( MountProtocol, AHandlerMayOutliveTheManager ) {
   const auto survivor = handler( "survivor" );
   mgr = nullptr;
   EXPECT_EQ( survivor->get_mount_point_name(), "survivor" );
}

TEST_F( MountProtocol, AHandlerDestroyedMeanwhileIsNotCalledAnyMore ) {
   std::unique_ptr< Handler > self, next, last;
   self = handler( "self", [&]( auto &, auto & ) { self = nullptr; } );
   next = handler( "next", {}, [&] { last = nullptr; } );
   last = handler( "last" );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "self asks", "next asks", "last asks", "next is told" ) );
}

TEST_F( MountProtocol, AHandlerThatIsTheLastAndDestroysItselfWhenToldHarmsNothing ) {
   std::unique_ptr< Handler > self;
   self = handler( "self", {}, [&] { self = nullptr; } );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "self asks", "self is told" ) );
}

TEST_F( MountProtocol, AHandlerAddedWhileOthersAskTakesPartInTheSamePass ) {
   std::unique_ptr< Handler > added;
   const auto adds = handler( "adds", [&]( auto &, auto & ) { added = handler( "added" ); } );
   const auto other = handler( "other" );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "adds asks", "other asks", "added asks", "adds is told",
                                  "other is told", "added is told" ) );
}

TEST_F( MountProtocol, AHandlerAddedWhileOthersAreToldHasAPassOfItsOwn ) {
   std::unique_ptr< Handler > added;
   const auto adds = handler( "adds", {}, [&] { added = handler( "added" ); } );
   const auto other = handler( "other" );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "adds asks", "other asks", "adds is told", "other is told",
                                  "added asks", "added is told" ) );
}

TEST_F( MountProtocol, SeveralHandlersMayMountOnePathForDifferentUses ) {
   entities->pathTypeIs( readable( "routing", "Quon::Dir" ) );
   const auto mounts = []( std::string_view mode ) {
      return [mode]( Keldb::MountGroup & group, QuonSharedMem::MountGroup & sharedMem ) {
         group.doMount( mounted( "routing", "Quon::Dir", mode ) );
         group.doMountPath( "routing" );
         sharedMem.doMount( "routing", "Routing::Status", QuonSharedMem::MountInfo::forReader() );
      };
   };
   const auto reads = handler( "reads", mounts( "r" ) ),
              writes = handler( "writes", mounts( "wi" ) );
   mgr->mountAll();
   EXPECT_THAT( log,
                ElementsAre( "reads asks", "writes asks", "reads is told", "writes is told" ) );
}

TEST_F( MountProtocol, AMountWithoutFlagsIsRefusedBeforeAnyoneIsTold ) {
   EXPECT_EQ( refusalOf( []( auto & group, auto & ) {
                 group.doMount( Keldb::Mount( "routing", "Quon::Dir" ) );
              } ),
              "routing is to be mounted without any flag" );
}

TEST_F( MountProtocol, AMountWithFlagsButWithoutATypeIsRefused ) {
   EXPECT_EQ(
      refusalOf( []( auto & group, auto & ) { group.doMount( mounted( "routing", "", "r" ) ); } ),
      "routing is to be mounted without a type" );
}

TEST_F( MountProtocol, AMountWithoutAPathIsRefused ) {
   EXPECT_EQ( refusalOf( []( auto & group, auto & ) { group.doMountPath( "" ); } ),
              "a mount without a path" );
}

TEST_F( MountProtocol, OnePathCannotHaveTwoTypes ) {
   EXPECT_EQ( refusalOf( []( auto &, auto & sharedMem ) {
                 sharedMem.doMount( "status", "A", QuonSharedMem::MountInfo::forReader() );
                 sharedMem.doMount( "status", "B", QuonSharedMem::MountInfo::forReader() );
              } ),
              "status is to be mounted both as A and as B" );
}

TEST_F( MountProtocol, AMountByPathAloneHasTheTypeThatTheDatabaseKeeps ) {
   entities->pathTypeIs( mounted( "routing", "Quon::Dir", "wi" ) );
   const auto asks =
      handler( "asks", []( auto & group, auto & ) { group.doMountPath( "routing" ); } );
   mgr->mountAll();
   EXPECT_TRUE( Quon::entityCast< Quon::Dir >( entities->getEntity( "routing" ) ) );
}

TEST_F( MountProtocol, AMountByPathAloneTakesTheEntityThatStandsThereWhereNoTypeIsKept ) {
   const auto present = Lumo::makeNode< Quon::Dir >();
   entities->entityIs( "routing", present );
   const auto asks =
      handler( "asks", []( auto & group, auto & ) { group.doMountPath( "routing" ); } );
   mgr->mountAll();
   EXPECT_EQ( entities->getEntity( "routing" ), present );
}

TEST_F( MountProtocol, AMountByPathAloneIsRefusedWhereTheDatabaseKeepsNoType ) {
   EXPECT_EQ( refusalOf( []( auto & group, auto & ) { group.doMountPath( "routing" ); } ),
              "routing is to be mounted by path alone, but the state database keeps no type for "
              "that path" );
}

TEST_F( MountProtocol, APathCannotHaveAnotherTypeThanTheDatabaseKeepsForIt ) {
   entities->pathTypeIs( readable( "routing", "Quon::Dir" ) );
   EXPECT_EQ( refusalOf( []( auto & group, auto & ) {
                 group.doMountPath( "routing" );
                 group.doMount( mounted( "routing", "Routing::Status", "r" ) );
              } ),
              "routing is to be mounted both as Quon::Dir and as Routing::Status" );
}

TEST_F( MountProtocol, WhatIsToBeMadeIsThereBeforeTheFirstIsTold ) {
   const auto asks = handler(
      "asks",
      []( auto & group, auto & ) { group.doMount( mounted( "routing", "Quon::Dir", "wi" ) ); },
      [&] { EXPECT_TRUE( entities->getEntity( "routing" ) ); } );
   mgr->mountAll();
   EXPECT_THAT( log, ElementsAre( "asks asks", "asks is told" ) );
}

TEST_F( MountProtocol, WhatIsThereStaysAndIsNeverMadeForAReader ) {
   const auto present = Quon::createEntity( "Quon::Dir" );
   entities->entityIs( "present", present );
   const auto asks = handler( "asks", []( auto & group, auto & ) {
      group.doMount( mounted( "present", "Test::NoSuchType", "wi" ) );
      group.doMount( readable( "absent", "Quon::Dir" ) );
   } );
   mgr->mountAll();
   EXPECT_EQ( entities->getEntity( "present" ), present );
   EXPECT_EQ( entities->getEntity( "absent" ), nullptr );
}

TEST_F( MountProtocol, ATypeThatDoesNotExistCannotBeMadeAndNothingElseIs ) {
   EXPECT_EQ( refusalOf( []( auto & group, auto & ) {
                 group.doMount( mounted( "routing", "Quon::Dir", "wi" ) );
                 group.doMount( mounted( "bridging", "Test::NoSuchType", "wi" ) );
              } ),
              "bridging is to be made as Test::NoSuchType, which is no entity type" );
   EXPECT_EQ( entities->getEntity( "routing" ), nullptr );
}

TEST_F( MountProtocol, SharedMemoryIsForReadersOnly ) {
   EXPECT_EQ(
      refusalOf( []( auto &, auto & sharedMem ) { sharedMem.doMount( "status", "A", {} ); } ),
      "status is in shared memory and can be mounted for a reader only" );
}

} // namespace
} // namespace velo
