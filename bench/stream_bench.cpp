/// The stream at 10^3, 10^5 and 10^6 classes, a hundred to a policy map.
///
/// `ns` is per class or per record, in this thread's own time. Where there is a `reference_ns`, a
/// loop written by hand for just this job (Reference.h) did the same in the same run, and `ratio`
/// is the first over the second. `bytes` is what the heap gave out per live class, without the
/// tree.

#include <memory>

#include "Measure.h"
#include "Reference.h"
#include "Stream.h"

namespace bench {
namespace {

std::size_t classesOf( const benchmark::State & state ) {
   return static_cast< std::size_t >( state.range( 0 ) );
}

/// A stream that watches and has nothing pending. It is made once per size.
struct Watching {
   explicit Watching( std::size_t classes ) : stream( classes ), reference( classes ) {
      stream.mount();
      stream.start();
      stream.drain();
      reference.changeAll();
      reference.drain();
   }

   static Watching & of( std::size_t classes ) {
      static std::unique_ptr< Watching > present;
      if ( !present || present->stream.tree.inRandomOrder().size() != classes ) {
         present.reset();
         present = std::make_unique< Watching >( classes );
      }
      return *present;
   }

   Stream stream;
   ReferenceStream reference;
};

void expect( benchmark::State & state, bool asItShouldBe, const char * what ) {
   if ( !asItShouldBe ) { state.SkipWithError( what ); }
}

// Starting and stopping ---------------------------------------------------------------------------

/// Every class gets its short key.
void initialScan( benchmark::State & state ) {
   const std::size_t classes = classesOf( state );
   Alone times( state, classes );
   double bytes = 0;
   for ( auto _ : state ) {
      Stream stream( classes );
      const double before = heapBytes();
      times.round( [&] { stream.mount(); } );
      bytes = ( heapBytes() - before ) / static_cast< double >( classes );
      expect( state, stream.mgr.shortKeys()->shortKey().size() == classes, "keys are missing" );
   }
   state.counters["bytes"] = bytes;
}

/// From `startWatching` until everything is pending; and memory, then and after the drain.
void startWatching( benchmark::State & state ) {
   const std::size_t classes = classesOf( state );
   Alone times( state, classes );
   double pending = 0;
   double idle = 0;
   for ( auto _ : state ) {
      Stream stream( classes );
      const double before = heapBytes();
      stream.mount();
      times.round( [&] { stream.start(); } );
      expect( state, stream.pending() == classes, "not everything is pending" );
      pending = ( heapBytes() - before ) / static_cast< double >( classes );
      stream.drain();
      idle = ( heapBytes() - before ) / static_cast< double >( classes );
      expect( state, stream.consumer->records == classes, "records are missing" );
   }
   state.counters["bytes_all_pending"] = pending;
   state.counters["bytes"] = idle;
}

void stopAndStartAgain( benchmark::State & state ) {
   const std::size_t classes = classesOf( state );
   Stream & stream = Watching::of( classes ).stream;
   Alone times( state, classes );
   for ( auto _ : state ) {
      times.round( [&] {
         stream.stop();
         stream.start();
      } );
      expect( state, stream.pending() == classes, "not everything is pending" );
      stream.drain();
   }
}

// Updates and drains ------------------------------------------------------------------------------

/// Counters changed -> record filed: nothing is pending before, everything afterwards.
void updateFiled( benchmark::State & state ) {
   Watching & watching = Watching::of( classesOf( state ) );
   SideBySide times( state, classesOf( state ) );
   for ( auto _ : state ) {
      times.round( [&] { watching.stream.changeAll(); }, [&] { watching.reference.changeAll(); } );
      expect( state, watching.stream.pending() == classesOf( state ), "records are missing" );
      expect( state, watching.reference.reference.pending() == classesOf( state ),
              "records of the reference are missing" );
      watching.stream.drain();
      watching.reference.drain();
   }
}

/// Counters changed while a record of theirs is pending: the common event.
void updateCoalesced( benchmark::State & state ) {
   Watching & watching = Watching::of( classesOf( state ) );
   watching.stream.changeAll();
   watching.reference.changeAll();
   {
      SideBySide times( state, classesOf( state ) );
      for ( auto _ : state ) {
         times.round( [&] { watching.stream.changeAll(); },
                      [&] { watching.reference.changeAll(); } );
      }
   }
   expect( state, watching.stream.pending() == classesOf( state ), "records are missing" );
   watching.stream.drain();
   watching.reference.drain();
}

void drain( benchmark::State & state ) {
   Watching & watching = Watching::of( classesOf( state ) );
   const std::uint64_t before = watching.stream.consumer->records;
   SideBySide times( state, classesOf( state ) );
   for ( auto _ : state ) {
      watching.stream.changeAll();
      watching.reference.changeAll();
      times.round( [&] { watching.stream.drain(); }, [&] { watching.reference.drain(); } );
   }
   expect( state,
           watching.stream.consumer->records - before ==
              classesOf( state ) * static_cast< std::uint64_t >( state.iterations() ),
           "records are missing" );
}

/// Slices of 64 records; in the second form one class changes at every fourth record.
template< class Consumer >
void drainInSlices( benchmark::State & state ) {
   Stream & stream = Watching::of( classesOf( state ) ).stream;
   const auto usual = stream.consumer;
   if constexpr ( std::is_same_v< Consumer, BusyConsumer > ) {
      stream.mgr.backlog()->frontendIs( Lumo::makeNode< BusyConsumer >( stream.tree ) );
   }
   const auto & consumer = static_cast< CountingConsumer & >( *stream.mgr.backlog()->frontend() );
   std::vector< double > ns;
   for ( auto _ : state ) {
      stream.loop.endlessSlices();
      stream.changeAll();
      stream.loop.yieldsAfter( 63 );
      const std::uint64_t before = consumer.records;
      const double seconds = secondsOf( [&] { stream.drain(); } );
      state.SetIterationTime( seconds );
      ns.push_back( seconds * 1e9 / static_cast< double >( consumer.records - before ) );
   }
   state.counters["ns"] = median( ns );
   stream.mgr.backlog()->frontendIs( usual );
   stream.loop.endlessSlices();
}

/// Sizes are the outer loop: what is made once per size is used by all before the next.
[[maybe_unused]] const bool registered = [] {
   const std::pair< const char *, void ( * )( benchmark::State & ) > all[] = {
      { "initialScan", initialScan },
      { "startWatching", startWatching },
      { "stopAndStartAgain", stopAndStartAgain },
      { "updateFiled", updateFiled },
      { "updateCoalesced", updateCoalesced },
      { "drain", drain },
      { "drainInSlices", drainInSlices< CountingConsumer > },
      { "drainInSlicesWithArrivals", drainInSlices< BusyConsumer > } };
   const std::pair< int, int > roundsBySize[] = { { 1000, 301 }, { 100'000, 9 }, { 1'000'000, 3 } };
   for ( const auto & [classes, rounds] : roundsBySize ) {
      for ( const auto & [name, measured] : all ) {
         benchmark::RegisterBenchmark( name, measured )
            ->Arg( classes )
            ->Iterations( rounds )
            ->UseManualTime()
            ->Unit( benchmark::kMillisecond );
      }
   }
   return true;
}();

} // namespace
} // namespace bench
