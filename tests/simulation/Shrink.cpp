#include "Shrink.h"

#include <algorithm>
#include <utility>

/// First whole stretches of steps are left out, the longest first:
///
///    a b c d e f g h     without a-d?  fails still -> goes on with e-h
///                        without e,f?  succeeds    -> they are needed
///                        without g,h?  ...
///
/// then each remaining step is made plainer. Both are done until neither helps: with plainer steps
/// others may have become needless.

namespace VeloSdkRpc::simulation {
namespace {

using Fails = std::function< bool( const Script & ) >;
using Place = Script::difference_type;

bool withoutStretches( Script & script, const Fails & fails ) {
   bool helped = false;
   for ( Place length = std::max< Place >( std::ssize( script ) / 2, 1 ); length > 0;
         length /= 2 ) {
      for ( Place at = 0; at < std::ssize( script ); ) {
         Script shorter = script;
         const Place end = std::min( at + length, std::ssize( script ) );
         shorter.erase( shorter.begin() + at, shorter.begin() + end );
         if ( fails( shorter ) ) {
            script = std::move( shorter );
            helped = true;
         } else {
            at = end;
         }
      }
   }
   return helped;
}

/// With a record less before it, a deed in a call may belong to the call before.
bool withEarlierCalls( Script & script, const Fails & fails ) {
   Script earlier = script;
   bool some = false;
   for ( Step & step : earlier ) {
      some |= step.call > 0;
      step.call -= step.call > 0;
   }
   for ( Place at = 0; some && at < std::ssize( script ); ++at ) {
      Script shorter = earlier;
      shorter.erase( shorter.begin() + at );
      if ( fails( shorter ) ) {
         script = std::move( shorter );
         return true;
      }
   }
   return false;
}

bool withPlainerSteps( Script & script, const Fails & fails ) {
   bool helped = false;
   for ( Step & step : script ) {
      const auto tried = [&]( Step plainer ) {
         const Step before = std::exchange( step, plainer );
         const bool good = plainer != before && fails( script );
         if ( !good ) { step = before; }
         helped |= good;
         return good;
      };
      if ( step.call != Step::kAtOnce ) {
         if ( !tried( { step.verb, step.n } ) ) { tried( { step.verb, step.n, 0 } ); }
      }
      if ( !tried( { step.verb, 0, step.call } ) &&
           !tried( { step.verb, step.n % 12, step.call } ) ) {
         tried( { step.verb, step.n / 2, step.call } );
      }
   }
   return helped;
}

} // namespace

Script shrunk( Script script, const Fails & fails ) {
   while ( withoutStretches( script, fails ) || withEarlierCalls( script, fails ) ||
           withPlainerSteps( script, fails ) ) {}
   return script;
}

} // namespace VeloSdkRpc::simulation
