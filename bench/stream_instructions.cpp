/// The stream's work on a number of classes, and the same by hand (Reference.h).

#include "Instructions.h"
#include "Reference.h"
#include "Stream.h"

namespace bench {
namespace {

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

const CountedWorks works{ { "updateFiled", updateFiled< Watching > },
                          { "updateFiledReference", updateFiled< WatchingReference > },
                          { "updateCoalesced", updateCoalesced< Watching > },
                          { "updateCoalescedReference", updateCoalesced< WatchingReference > },
                          { "drain", drain< Watching > },
                          { "drainReference", drain< WatchingReference > },
                          { "drainInSlices", drainInSlices },
                          { "drainInSlicesWithArrivals", drainInSlicesWithArrivals } };

} // namespace
} // namespace bench

int main( int argc, char ** argv ) { return bench::countInstructions( bench::works, argc, argv ); }
