// The whole stream: random scripts of tree changes, slices and watch switches, with consumers that
// change the tree, switch and throw while they are being told. What must hold is in StreamLedger.h.

#include <vector>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "VeloSdkRpc/test/StreamLedger.h"

namespace VeloSdkRpc::test {
namespace {

rc::Gen< Deeds > deeds( const std::vector< Verb > & verbs ) {
   return rc::gen::container< Deeds >( rc::gen::construct< Deed >(
      rc::gen::elementOf( verbs ), rc::gen::inRange( 0U, kPolicies * kClasses * 2 ) ) );
}

const std::vector< Verb > kTreeChanges = {
   Verb::addClass,      Verb::addClass,    Verb::addClass, Verb::addClassWithoutCounters,
   Verb::removeClass,   Verb::count,       Verb::count,    Verb::addPolicy,
   Verb::addNullPolicy, Verb::removePolicy };

std::vector< Verb > treeChangesAnd( const std::vector< Verb > & more ) {
   std::vector< Verb > all = kTreeChanges;
   all.insert( all.end(), more.begin(), more.end() );
   return all;
}

void storyHolds( const Deeds & beforeMounts, const Deeds & script,
                 const std::vector< Deeds > & whims ) {
   World world( beforeMounts, whims );
   for ( const Deed & deed : script ) { world.play( deed ); }
   world.settle();
}

const std::vector< Verb > kScript =
   treeChangesAnd( { Verb::start, Verb::start, Verb::startAgain, Verb::stop, Verb::slice,
                     Verb::slice, Verb::slice, Verb::slicesOf, Verb::settle } );

RC_GTEST_PROP( PbrCountersMgrProperty, ConsumersThatKeepTheContractKnowTheTree, () ) {
   const auto whims = std::vector< Deeds >();
   storyHolds( *deeds( kTreeChanges ), *rc::gen::resize( 300, deeds( kScript ) ), whims );
}

RC_GTEST_PROP( PbrCountersMgrProperty, ConsumersThatReenterAndThrowBreakNothing, () ) {
   const auto whims = *rc::gen::container< std::vector< Deeds > >( rc::gen::weightedOneOf< Deeds >(
      { { 1, rc::gen::just( Deeds() ) },
        { 2, rc::gen::resize( 6, deeds( treeChangesAnd( { Verb::start, Verb::startAgain, Verb::stop,
                                                          Verb::fail } ) ) ) } } ) );
   storyHolds( *deeds( kTreeChanges ), *rc::gen::resize( 300, deeds( kScript ) ), whims );
}

} // namespace
} // namespace VeloSdkRpc::test
