#pragma once

#include <sstream>
#include <string>

#include "VeloSdkRpc/test/Machines.h"

namespace VeloSdkRpc::test {

/// What the suites share that hold for both of the twin machines.
template< class Machine >
class BothMachinesTest : public MachineTest< Machine > {
 protected:
   using typename MachineTest< Machine >::Child;

   /// `policies` policy maps of `classes` classes each.
   void grow( int policies, int classes ) {
      for ( int p = 0; p < policies; ++p ) {
         this->tree.addPolicy( policy( p ) );
         for ( int c = 0; c < classes; ++c ) { this->tree.addClass( policy( p ), className( c ) ); }
      }
   }
   static std::string policy( int p ) { return "p" + std::to_string( p ); }
   static std::string className( int c ) { return "c" + std::to_string( c ); }

   void startAsynchronous() { this->start( kAsynchronous ); }
   void startSynchronous() { this->start( kSynchronous ); }

   /// One policy map per slice: the machine stands at the second of `n` policy maps in its first
   /// pass.
   void startAndYield( int n ) {
      grow( n, 1 );
      this->loop.alwaysYields();
      startAsynchronous();
      ASSERT_EQ( this->root().inputScanState0(), detail::InputScanState::yielded );
   }
   /// ... and in its second pass.
   void startAndYieldInTheSecondPass( int n ) {
      startAndYield( n );
      while ( !this->sm->initialScanDone() ) { this->loop.runOne(); }
      this->loop.runOne();
      ASSERT_EQ( this->root().inputScanState0(), detail::InputScanState::yielded );
   }

   static std::string spelled( const PolicyMapKey & key ) {
      std::ostringstream os;
      os << key;
      return os.str();
   }
};

using BothMachines = testing::Types< KeyTableMachine, BacklogMachine >;

} // namespace VeloSdkRpc::test
