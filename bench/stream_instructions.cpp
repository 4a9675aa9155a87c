/// One piece of the stream's work for a program that counts executed instructions.
///
/// Usage: stream_instructions WORK CLASSES
///
/// Prints how many items the work handled. Run under valgrind's callgrind, which counts from the
/// beginning of the work to its end and nothing else, it makes the figures that
/// `scripts/bench --instructions` prints: the same on every machine, however busy.

#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include <valgrind/callgrind.h>

#include "Reference.h"
#include "Stream.h"

namespace bench {
namespace {

void counted( const std::function< void() > & work ) {
   CALLGRIND_START_INSTRUMENTATION;
   work();
   CALLGRIND_STOP_INSTRUMENTATION;
}

/// A stream that watches and has nothing pending.
struct Watching : Stream {
   explicit Watching( std::size_t classes ) : Stream( classes ) {
      mount();
      start();
      drain();
   }
};
struct WatchingReference : ReferenceStream {
   explicit WatchingReference( std::size_t classes ) : ReferenceStream( classes ) {
      changeAll();
      drain();
   }
};

template< class Subject >
std::size_t updateFiled( std::size_t classes ) {
   Subject subject( classes );
   counted( [&] { subject.changeAll(); } );
   return classes;
}

template< class Subject >
std::size_t updateCoalesced( std::size_t classes ) {
   Subject subject( classes );
   subject.changeAll();
   counted( [&] { subject.changeAll(); } );
   return classes;
}

template< class Subject >
std::size_t drain( std::size_t classes ) {
   Subject subject( classes );
   subject.changeAll();
   const auto before = subject.consumer->records;
   counted( [&] { subject.drain(); } );
   return subject.consumer->records - before;
}

/// Slices of 64 records.
std::size_t drainInSlices( std::size_t classes ) {
   Watching stream( classes );
   stream.changeAll();
   stream.loop.yieldsAfter( 63 );
   const auto before = stream.consumer->records;
   counted( [&] { stream.drain(); } );
   return stream.consumer->records - before;
}

/// The same while one class changes at every fourth record.
std::size_t drainInSlicesWithArrivals( std::size_t classes ) {
   Watching stream( classes );
   stream.changeAll();
   const auto consumer = Lumo::makeNode< BusyConsumer >( stream.tree );
   stream.mgr.backlog()->frontendIs( consumer );
   stream.loop.yieldsAfter( 63 );
   counted( [&] { stream.drain(); } );
   return consumer->records;
}

const std::map< std::string, std::size_t ( * )( std::size_t ) > works{
   { "updateFiled", updateFiled< Watching > },
   { "updateFiledReference", updateFiled< WatchingReference > },
   { "updateCoalesced", updateCoalesced< Watching > },
   { "updateCoalescedReference", updateCoalesced< WatchingReference > },
   { "drain", drain< Watching > },
   { "drainReference", drain< WatchingReference > },
   { "drainInSlices", drainInSlices },
   { "drainInSlicesWithArrivals", drainInSlicesWithArrivals } };

} // namespace
} // namespace bench

int main( int argc, char ** argv ) {
   const auto work = argc == 3 ? bench::works.find( argv[1] ) : bench::works.end();
   const std::size_t classes = argc == 3 ? std::strtoull( argv[2], nullptr, 10 ) : 0;
   if ( work == bench::works.end() || classes == 0 ) {
      std::cerr << "usage: stream_instructions WORK CLASSES, where WORK is one of\n";
      for ( const auto & [name, function] : bench::works ) { std::cerr << "   " << name << '\n'; }
      return 2;
   }
   std::cout << work->second( classes ) << '\n';
}
