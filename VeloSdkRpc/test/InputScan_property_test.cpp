#include <algorithm>
#include <set>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "VeloSdkRpc/test/Machines.h"

/// Scans in any interleaving of slices and changes of the tree, against what must hold of them
/// whatever the machine and the order. RapidCheck tells its seed when it fails, the program that of
/// the hashes, which decides the order of every scan.

namespace VeloSdkRpc::test {
namespace {

constexpr unsigned kPolicies = 6;
constexpr unsigned kClasses = 6;

/// What is done, to which policy map and class.
using Step = std::tuple< unsigned, unsigned, unsigned >;

/// Yields at random, but in the same way for the same seed.
class YieldsAtRandom final : public Oru::SlicePolicy {
 public:
   explicit YieldsAtRandom( std::uint64_t seed ) : state_( seed | 1 ) {}

   void sliceBegins() override {}
   std::uint32_t consult() override {
      state_ = state_ * 6364136223846793005U + 1442695040888963407U;
      return ( state_ >> 61 ) < 4 ? 0 : 1;
   }

 private:
   std::uint64_t state_;
};

/// A machine whose every step is watched from outside.
template< class Machine >
class WatchedScan : public World {
 public:
   WatchedScan( std::uint64_t seed,
                const std::vector< std::pair< unsigned, unsigned > > & before ) {
      loop.scheduler()->slicePolicyIs( std::make_unique< YieldsAtRandom >( seed ) );
      for ( const auto & [p, c] : before ) { addClass( p, c ); }
   }

   /// What a previous life left in the backlog and the novel set, under keys of its own.
   void leave( unsigned entries ) {
      for ( unsigned n = 1; n <= entries; ++n ) {
         backlog->backlogIs( PbrCounters( n, longKey( "gone", className( n ) ), nullptr, false ) );
         table->novelKeyIs( n );
      }
      table->nextKeyIs( entries );
      left = entries;
   }

   void start() {
      sm = Machine::make( *this, Ivx::SmControl( loop.scheduler(), 0, {}, kAsynchronous ) );
      passBegins();
   }

   void perform( const Step & step ) {
      const auto [what, p, c] = step;
      try {
         switch ( what ) {
         case 0:
         case 1:
            return addClass( p, c );
         case 2:
            return removeClass( p, c );
         case 3:
            return removePolicy( p );
         case 4:
            return count( p, c );
         case 5:
            removePolicy( p );
            return addClass( p, c );
         default:
            slice();
         }
      } catch ( const Quon::BadOptionalAccess & ) {
         // The class went before the second pass came to it: it has no short key to withdraw.
      }
   }

   void finish() {
      int runs = 0;
      while ( loop.pending() != 0 ) {
         slice();
         RC_ASSERT( ++runs < 1000 );
      }
   }

   /// One run of a task.
   void slice() {
      if ( loop.pending() == 0 ) { return; }
      const bool second = sm->initialScanDone();
      Lumo::CapturingTraceSink traces( "Ivx", Lumo::traceLevels( 7 ) );
      loop.runOne();
      for ( const std::string & leaf : leavesFed( traces ) ) {
         RC_ASSERT( second );                    // The first pass feeds nothing,
         RC_ASSERT( fed.insert( leaf ).second ); // and the second no key twice.
      }
      if ( second != sm->initialScanDone() ) { passBegins(); }
      if ( second && sm->ready() && !over ) {
         over = true;
         passEnds();
      }
   }

   static std::string leaf( const CountersTree::Name & name ) {
      std::ostringstream os;
      os << PolicyMapKey( name.first );
      return "policyKey=" + os.str() + " name=" + name.second;
   }

   Loop loop;
   Lumo::Ptr< typename Machine::Sm > sm;
   bool over = false;
   unsigned left = 0;

 private:
   static std::string policyName( unsigned p ) { return "p" + std::to_string( p ); }
   static std::string className( unsigned c ) { return "c" + std::to_string( c ); }
   bool present( unsigned p, unsigned c ) const {
      return tree.contents().contains( { policyName( p ), className( c ) } );
   }

   void addClass( unsigned p, unsigned c ) {
      if ( !present( p, c ) ) { tree.addClass( policyName( p ), className( c ), ++packets_ ); }
   }
   void removeClass( unsigned p, unsigned c ) {
      throughout_.erase( { policyName( p ), className( c ) } );
      tree.removeClass( policyName( p ), className( c ) );
   }
   void removePolicy( unsigned p ) {
      std::erase_if( throughout_,
                     [&]( const auto & name ) { return name.first == policyName( p ); } );
      tree.removePolicy( policyName( p ) );
   }
   void count( unsigned p, unsigned c ) {
      if ( present( p, c ) ) { tree.count( policyName( p ), className( c ), ++packets_ ); }
   }

   void passBegins() {
      throughout_.clear();
      for ( const auto & [name, packets] : tree.contents() ) { throughout_.insert( name ); }
   }
   /// None that was there throughout the second pass was skipped.
   void passEnds() {
      for ( const auto & name : throughout_ ) { RC_ASSERT( fed.contains( leaf( name ) ) ); }
   }

   std::uint64_t packets_ = 0;
   std::set< CountersTree::Name > throughout_; ///< The classes that stay for the whole pass.

 public:
   std::set< std::string > fed; ///< By the slices of the second pass.
};

/// Whether the machine has come to where a cold start over the final tree would have come.
template< class Machine >
void expectAsAfterAColdStart( const WatchedScan< Machine > & scan ) {
   RC_ASSERT( scan.sm->ready() );
   RC_ASSERT( scan.sm->idle() );
   World cold;
   for ( const auto & [name, packets] : scan.tree.contents() ) {
      cold.tree.addClass( name.first, name.second, packets );
   }
   const auto machine = Machine::make( cold, Ivx::SmControl( nullptr, 0, {}, kSynchronous ) );
   std::set< CountersTree::Name > expected;
   for ( const auto & [name, key] : cold.known() ) { expected.insert( name ); }
   std::set< CountersTree::Name > actual;
   std::set< std::uint64_t > keys;
   for ( const auto & [name, key] : scan.known() ) {
      actual.insert( name );
      RC_ASSERT( keys.insert( key ).second ); // No short key stands for two classes.
      RC_ASSERT( 0 < key && key <= scan.table->nextKey() );
   }
   RC_ASSERT( actual == expected );
   // One machine per policy map, with every class below it heard.
   const auto & root = *Machine::root( *scan.sm );
   for ( const std::string & policy : scan.policies() ) {
      const auto child = root.childSmPolicyMapCountersPolicyMapCountersPolicyMapCountersPtrConst(
         PolicyMapKey( policy ) );
      RC_ASSERT( child );
      RC_ASSERT( child->en().get() == scan.tree.policyMap( policy ) );
      RC_ASSERT( child->inputScanComplete0() );
   }
}

/// The backlog machine's records, besides: one per class, and else only deletions; nothing of a
/// previous life.
void expectRecordsInStep( const WatchedScan< KeyTableMachine > & scan ) {
   RC_ASSERT( scan.backlog->backlog().size() == scan.left ); // None of this machine's business.
   RC_ASSERT( scan.table->novelKey().size() == scan.left );
}
void expectRecordsInStep( const WatchedScan< BacklogMachine > & scan ) {
   std::map< CountersTree::Name, std::uint64_t > packets;
   for ( const auto & entry : scan.backlog->backlog() ) {
      const PbrCounters & record = entry.value();
      if ( record.deletedKey() ) {
         RC_ASSERT( !record.data() );
         continue;
      }
      const CountersTree::Name name{ std::string( record.longKey().policyKey().name().view() ),
                                     std::string( record.longKey().name().view() ) };
      RC_ASSERT( scan.shortKey( name.first, name.second ) == record.shortKey() );
      RC_ASSERT( packets.emplace( name, record.data()->countData().packets() ).second );
   }
   RC_ASSERT( packets == scan.tree.contents() );
   for ( const auto & novel : scan.table->novelKey() ) { RC_ASSERT( novel.fwkKey() > scan.left ); }
}

template< class Machine >
class InputScanProperty : public testing::Test {};
using BothMachines = testing::Types< KeyTableMachine, BacklogMachine >;
TYPED_TEST_SUITE( InputScanProperty, BothMachines );

TYPED_TEST( InputScanProperty, AnyInterleavingOfSlicesAndChangesEndsAsAColdStart ) {
   const bool held = rc::check( [] {
      using rc::gen::inRange;
      const auto policy = inRange( 0U, kPolicies );
      const auto name = inRange( 0U, kClasses );
      const auto before = *rc::gen::container< std::vector< std::pair< unsigned, unsigned > > >(
         rc::gen::pair( policy, name ) );
      const auto steps = *rc::gen::container< std::vector< Step > >(
         rc::gen::tuple( inRange( 0U, 12U ), policy, name ) );
      const auto seed = *rc::gen::arbitrary< std::uint64_t >();
      WatchedScan< TypeParam > scan( seed, before );
      scan.leave( *inRange( 0U, 8U ) );
      scan.start();
      for ( const Step & step : steps ) { scan.perform( step ); }
      scan.finish();
      RC_ASSERT( scan.over );
      expectAsAfterAColdStart( scan );
      expectRecordsInStep( scan );
      RC_CLASSIFY( !scan.fed.empty() );
   } );
   EXPECT_TRUE( held );
}

} // namespace
} // namespace VeloSdkRpc::test
