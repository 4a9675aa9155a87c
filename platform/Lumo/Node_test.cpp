#include <array>
#include <cstring>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gmock/gmock.h>

#include "Lumo/Node.h"
#include "Lumo/Ptr.h"
#include "Lumo/Publisher.h"
#include "Lumo/ThrowingAssertionHandler.h"

namespace Lumo {
namespace {

using testing::ElementsAre;

using Story = std::vector< std::string >;

/// Tells when it is destroyed.
class Plain : public Node {
 public:
   explicit Plain( Story * story = nullptr, std::string name = "node" )
      : story_( story ), name_( std::move( name ) ) {}
   ~Plain() override { tell( "destroyed" ); }

   void tell( const char * what ) {
      if ( story_ ) { story_->push_back( name_ + " " + what ); }
   }

 private:
   Story * story_;
   std::string name_;
};

class Derived final : public Plain {
 public:
   using Plain::Plain;
};

constexpr std::array kAllFlags = { Node::Flag::zombie, Node::Flag::hasNotificationActive,
                                   Node::Flag::initialized, Node::Flag::inReactor };

TEST( NodeTest, ANewNodeHasOneReferenceAndItsPtrOwnsIt ) {
   Story story;
   Ptr< Plain > node = makeNode< Plain >( &story );
   EXPECT_EQ( node->references(), 1U );
   EXPECT_TRUE( node->nodeFlag( Node::Flag::adopted ) );
   node = nullptr;
   EXPECT_THAT( story, ElementsAre( "node destroyed" ) );
}

template< class T >
concept MadeByPlainNew = requires { new T; };

TEST( NodeTest, APlainNewOfANodeDoesNotCompile ) {
   EXPECT_FALSE( MadeByPlainNew< Plain > );
   EXPECT_TRUE( MadeByPlainNew< Story > );
}

TEST( NodeTest, ANodeOnTheStackKeepsItsOwnReference ) {
   Story story;
   {
      Plain node( &story );
      { const Ptr< Plain > visitor( &node ); }
      EXPECT_THAT( story, ElementsAre() );
   }
   EXPECT_THAT( story, ElementsAre( "node destroyed" ) );
}

TEST( NodeTest, FlagsSurviveCounting ) {
   for ( const Node::Flag flag : kAllFlags ) {
      Plain node;
      node.nodeFlagSet( flag, true );
      { const std::vector< Ptr< Node > > crowd( 1000, Ptr< Node >( &node ) ); }
      for ( const Node::Flag other : kAllFlags ) {
         EXPECT_EQ( node.nodeFlag( other ), other == flag );
      }
      node.nodeFlagSet( flag, false );
      EXPECT_FALSE( node.nodeFlag( flag ) );
   }
}

TEST( NodeTest, TheCountSurvivesFlagWrites ) {
   Plain node;
   const std::vector< Ptr< Node > > crowd( 300, Ptr< Node >( &node ) );
   for ( const bool on : { true, true, false, false } ) {
      for ( const Node::Flag flag : kAllFlags ) {
         node.nodeFlagSet( flag, on );
         EXPECT_EQ( node.references(), 301U );
      }
   }
}

/// Looks at itself when its last user goes.
class LooksAtItself final : public Plain {
 public:
   using Plain::Plain;
   void lastUserGone() override {
      tell( isZombie() ? "is a zombie" : "is no zombie" );
      Node::lastUserGone();
   }
};

TEST( NodeTest, TheZombieFlagIsSetBeforeLastUserGoneIsCalled ) {
   Story story;
   {
      auto node = makeNode< LooksAtItself >( &story );
      EXPECT_FALSE( node->isZombie() );
   }
   EXPECT_THAT( story, ElementsAre( "node is a zombie", "node destroyed" ) );
}

/// Returns to its stock instead of being destroyed.
class Pooled final : public Plain {
 public:
   Pooled( Story * story, std::unique_ptr< Node > & stock ) : Plain( story ), stock_( stock ) {}
   void lastUserGone() override { stock_.reset( this ); }

 private:
   std::unique_ptr< Node > & stock_;
};

TEST( NodeTest, LastUserGoneDecidesHowTheNodeEnds ) {
   Story story;
   std::unique_ptr< Node > stock;
   makeNode< Pooled >( &story, stock );
   ASSERT_NE( stock, nullptr );
   EXPECT_THAT( story, ElementsAre() );
   stock.reset();
   EXPECT_THAT( story, ElementsAre( "node destroyed" ) );
}

TEST( NodeTest, AnOrdinaryNodePublishesNothing ) {
   EXPECT_EQ( makeNode< Plain >()->publisher(), nullptr );
}

/// The virtual slot that a pointer to member function stands for (generic C++ ABI: 1 + offset).
template< class MemberFunction >
std::size_t slotOf( MemberFunction function ) {
   std::ptrdiff_t word;
   std::memcpy( &word, &function, sizeof( word ) );
   return static_cast< std::size_t >( word - 1 ) / sizeof( void * );
}

TEST( NodeTest, TheTwoDestructorsComeFirstThenLastUserGoneThenPublisher ) {
   EXPECT_EQ( slotOf( &Node::lastUserGone ), 2U );
   EXPECT_EQ( slotOf( &Node::publisher ), 3U );
}

TEST( PtrTest, ACopyTakesAReferenceAndAMoveDoesNot ) {
   auto first = makeNode< Plain >();
   auto second = first;
   EXPECT_EQ( first->references(), 2U );
   const auto third = std::move( second );
   EXPECT_EQ( first->references(), 2U );
   EXPECT_EQ( second, nullptr ); // NOLINT: what a move leaves behind is promised to be null
   const Ptr< const Node > base = third;
   EXPECT_EQ( first->references(), 3U );
   EXPECT_EQ( base, third );
}

TEST( PtrTest, AMoveToABaseTypeTakesNoReference ) {
   const Ptr< const Node > base = makeNode< Derived >();
   EXPECT_EQ( base->references(), 1U );
}

TEST( PtrTest, AssigningAPtrToItselfChangesNothing ) {
   auto node = makeNode< Plain >();
   auto & alias = node;
   node = alias;
   EXPECT_EQ( node->references(), 1U );
   node = std::move( alias );
   ASSERT_NE( node, nullptr );
   EXPECT_EQ( node->references(), 1U );
}

/// Looks at a pointer while it is destroyed.
class LooksBack final : public Node {
 public:
   LooksBack( const Ptr< Node > & home, Node *& seen ) : home_( home ), seen_( seen ) {}
   ~LooksBack() override { seen_ = home_.get(); }

 private:
   const Ptr< Node > & home_;
   Node *& seen_;
};

TEST( PtrTest, TheNewNodeIsInPlaceWhenTheOldOneIsDestroyed ) {
   Ptr< Node > home;
   Node * seen = nullptr;
   home = makeNode< LooksBack >( home, seen );
   const auto successor = makeNode< Plain >();
   home = successor;
   EXPECT_EQ( seen, successor.get() );
}

TEST( PtrTest, NullIsAnOrdinaryValue ) {
   Ptr< Plain > none;
   const Ptr< Plain > copy = none;
   none = copy;
   EXPECT_EQ( none, nullptr );
   EXPECT_FALSE( copy );
   EXPECT_EQ( dynamicPtrCast< Derived >( copy ), nullptr );
}

TEST( PtrTest, ReleaseAndAdoptHandTheReferenceOver ) {
   auto node = makeNode< Plain >();
   auto back = Ptr< Plain >::adopt( node.release() );
   EXPECT_EQ( node, nullptr );
   EXPECT_EQ( back->references(), 1U );
}

TEST( PtrTest, ADynamicCastGivesTheSameNodeOrNull ) {
   const Ptr< Node > derived = makeNode< Derived >();
   const Ptr< Node > plain = makeNode< Plain >();
   EXPECT_EQ( dynamicPtrCast< Derived >( derived ), derived );
   EXPECT_EQ( derived->references(), 1U );
   EXPECT_EQ( dynamicPtrCast< Derived >( plain ), nullptr );
}

TEST( PtrTest, EqualPtrsHashAlike ) {
   const auto node = makeNode< Plain >();
   const std::unordered_set< Ptr< Plain > > set = { node, node, makeNode< Plain >() };
   EXPECT_EQ( set.size(), 2U );
}

/// Tries to take a reference on itself when its last user has gone.
class Clings final : public Plain {
 public:
   using Plain::Plain;
   void lastUserGone() override {
      try {
         const Ptr< Node > again( this );
      } catch ( const AssertionThrown & failure ) { tell( failure.condition().c_str() ); }
      Node::lastUserGone();
   }
};

TEST( NodeDebugCheckTest, NoReferenceIsTakenDuringDestruction ) {
   if ( !kDebugChecks ) { GTEST_SKIP() << "built without debug checks"; }
   const ThrowingAssertionHandler assertions;
   Story story;
   makeNode< Clings >( &story );
   EXPECT_THAT(
      story, ElementsAre( "node count() != 0 && \"no reference may be taken during destruction\"",
                          "node destroyed" ) );
}

TEST( NodeDebugCheckDeathTest, NothingPointsToANodeAfterItsDestruction ) {
   if ( !kDebugChecks ) { GTEST_SKIP() << "built without debug checks"; }
   EXPECT_DEATH(
      {
         std::optional< Plain > node( std::in_place );
         const Ptr< Plain > visitor( &*node );
         node.reset();
      },
      "nobody refers to a node that is destroyed" );
}

TEST( NodeDeathTest, AReferenceThatWasNeverAdoptedIsNotDropped ) {
   EXPECT_DEATH(
      {
         const Plain node;
         node.referenceDropped();
      },
      "only an adopted reference may be dropped" );
}

constexpr int kOften = 100000;

/// Runs `work` on four threads and `alongside` on this one, all starting together.
template< class Work, class Alongside >
void onFourThreads( Work work, Alongside alongside ) {
   std::latch start( 5 );
   std::vector< std::thread > threads;
   for ( int i = 0; i < 4; ++i ) {
      threads.emplace_back( [&] {
         start.arrive_and_wait();
         work();
      } );
   }
   start.arrive_and_wait();
   alongside();
   for ( std::thread & thread : threads ) { thread.join(); }
}

TEST( NodeThreadTest, NoReferenceIsLostWhenThreadsCountAtOnce ) {
   const auto node = makeNode< Plain >();
   const auto work = [&node] {
      for ( int i = 0; i < kOften; ++i ) {
         const auto copy = node;
         const Ptr< const Node > another = copy;
      }
   };
   onFourThreads( work, work );
   EXPECT_EQ( node->references(), 1U );
}

TEST( NodeThreadTest, NoFlagWriteIsLostWhileOtherThreadsCount ) {
   const auto node = makeNode< Plain >();
   onFourThreads(
      [&node] {
         for ( int i = 0; i < kOften; ++i ) { const auto copy = node; }
      },
      [&node] {
         for ( int i = 0; i < kOften; ++i ) {
            node->nodeFlagSet( Node::Flag::inReactor, i % 2 == 0 );
            ASSERT_EQ( node->nodeFlag( Node::Flag::inReactor ), i % 2 == 0 );
         }
      } );
   EXPECT_EQ( node->references(), 1U );
   EXPECT_FALSE( node->nodeFlag( Node::Flag::inReactor ) );
}

/// Written to by its users; its destructor reads what they wrote.
class Ledger final : public Node {
 public:
   explicit Ledger( int & total ) : total_( total ) {}
   ~Ledger() override {
      for ( const int entry : entries ) { total_ += entry; }
   }
   std::array< int, 4 > entries{};

 private:
   int & total_;
};

TEST( NodeThreadTest, WhoeverDropsTheLastReferenceSeesWhatTheOthersWrote ) {
   for ( int round = 0; round < 200; ++round ) {
      int total = 0;
      std::vector< std::thread > users;
      auto ledger = makeNode< Ledger >( total );
      for ( int & entry : ledger->entries ) {
         users.emplace_back( [mine = ledger, &entry]() mutable {
            entry = 1;
            mine = nullptr;
         } );
      }
      ledger = nullptr;
      for ( std::thread & user : users ) { user.join(); }
      ASSERT_EQ( total, 4 );
   }
}

TEST( NodeThreadTest, CountingGoesOnRightlyWhenTheProcessGetsItsFirstThread ) {
   // A death test's child starts with a single thread, whatever ran before (except under the
   // thread sanitizer, which has a thread of its own).
   EXPECT_EXIT(
      {
         Plain node;
         std::vector< Ptr< Node > > crowd( 100, Ptr< Node >( &node ) );
         std::thread( [&] { crowd.resize( 150, Ptr< Node >( &node ) ); } ).join();
         const bool atomicNow = !__libc_single_threaded;
         crowd.resize( 70 );
         std::exit( atomicNow && node.references() == 71 ? 0 : 1 );
      },
      testing::ExitedWithCode( 0 ), "" );
}

} // namespace
} // namespace Lumo
