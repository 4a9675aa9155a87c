#pragma once

#include <ostream>
#include <utility>
#include <vector>

#include <rapidcheck.h>

/// Random stories of a backlog: entries come and go between the runs and while they are handed
/// over, runs are told to yield anywhere, consumers come, go and throw.
namespace VeloSdkRpc::test {

enum class Verb { file, withdraw, fileDeletion, makeNovel, fail, leave, join, fileAnew };

/// Something that somebody does to the backlog.
struct Deed {
   Verb verb;
   unsigned key;
};
using Deeds = std::vector< Deed >;

/// What happens before a run, how often it is allowed to go on, and what happens during the n-th
/// call of its consumer.
struct Step {
   Deeds before;
   unsigned goOns;
   std::vector< Deeds > during;
};

inline std::ostream & operator<<( std::ostream & os, const Deed & deed ) {
   static constexpr const char * kNames[] = { "file", "withdraw", "fileDeletion", "makeNovel",
                                              "fail", "leave",    "join",         "fileAnew" };
   return os << kNames[static_cast< int >( deed.verb )] << "( " << deed.key << " )";
}

inline std::ostream & operator<<( std::ostream & os, const Step & step ) {
   os << "\n   before:";
   for ( const Deed & deed : step.before ) { os << " " << deed; }
   os << "\n   run that may go on " << step.goOns << " times";
   for ( const Deeds & call : step.during ) {
      os << "\n      call:";
      for ( const Deed & deed : call ) { os << " " << deed; }
   }
   return os;
}

inline rc::Gen< Deeds > deeds( const std::vector< Verb > & verbs, unsigned keys ) {
   return rc::gen::container< Deeds >(
      rc::gen::construct< Deed >( rc::gen::elementOf( verbs ), rc::gen::inRange( 0U, keys ) ) );
}

/// Few runs of few records, or many of many; what happens inside a run is rarer than outside.
inline rc::Gen< std::vector< Step > > scripts( const std::vector< Verb > & outside,
                                               const std::vector< Verb > & inside, unsigned keys ) {
   auto steps = rc::gen::container< std::vector< Step > >( rc::gen::construct< Step >(
      deeds( outside, keys ),
      rc::gen::weightedOneOf< unsigned >( {
         { 3, rc::gen::inRange( 0U, 6U ) },
         { 1, rc::gen::just( 1000U ) },
      } ),
      rc::gen::container< std::vector< Deeds > >( rc::gen::weightedOneOf< Deeds >( {
         { 3, rc::gen::just( Deeds() ) },
         { 2, rc::gen::resize( 3, deeds( inside, keys ) ) },
      } ) ) ) );
   // Long scripts cost the square of their length and find nothing that shorter ones do not.
   return rc::gen::scale( 0.5, std::move( steps ) );
}

} // namespace VeloSdkRpc::test
