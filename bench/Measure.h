#pragma once

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include <benchmark/benchmark.h>

/// Clocks, heaps and medians.
namespace bench {

/// What this thread has worked so far: what other programs do to the machine in the meantime is
/// left out as far as can be.
inline double threadSeconds() {
   timespec now;
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &now );
   return static_cast< double >( now.tv_sec ) + static_cast< double >( now.tv_nsec ) * 1e-9;
}

template< class Work >
double secondsOf( Work && work ) {
   const double began = threadSeconds();
   work();
   return threadSeconds() - began;
}

/// What the heap has given out and not got back.
inline double heapBytes() {
   const auto info = mallinfo2();
   return static_cast< double >( info.uordblks + info.hblkhd );
}

inline double median( std::vector< double > values ) {
   const auto middle = values.begin() + static_cast< std::ptrdiff_t >( values.size() / 2 );
   std::nth_element( values.begin(), middle, values.end() );
   return *middle;
}

/// Rounds of work. Reports the median of nanoseconds per item as `ns`.
class Alone {
 public:
   Alone( benchmark::State & state, std::size_t itemsPerRound )
      : state_( state ), items_( static_cast< double >( itemsPerRound ) ) {}
   ~Alone() { state_.counters["ns"] = median( ns_ ); }
   Alone( const Alone & ) = delete;
   Alone & operator=( const Alone & ) = delete;

   template< class Work >
   void round( Work && work ) {
      const double seconds = secondsOf( work );
      state_.SetIterationTime( seconds );
      ns_.push_back( seconds * 1e9 / items_ );
   }

 private:
   benchmark::State & state_;
   const double items_;
   std::vector< double > ns_;
};

/// Rounds of the stream's work and of the reference's, taken in turns so that both meet the same
/// machine. Reports medians: nanoseconds per item as `ns` and `reference_ns`, and `ratio`.
class SideBySide {
 public:
   SideBySide( benchmark::State & state, std::size_t itemsPerRound )
      : state_( state ), items_( static_cast< double >( itemsPerRound ) ) {}
   ~SideBySide() {
      state_.counters["ns"] = median( ours_ );
      state_.counters["reference_ns"] = median( references_ );
      state_.counters["ratio"] = median( ours_ ) / median( references_ );
   }
   SideBySide( const SideBySide & ) = delete;
   SideBySide & operator=( const SideBySide & ) = delete;

   template< class Work, class ReferenceWork >
   void round( Work && work, ReferenceWork && referenceWork ) {
      const double seconds = secondsOf( work );
      state_.SetIterationTime( seconds );
      ours_.push_back( seconds * 1e9 / items_ );
      references_.push_back( secondsOf( referenceWork ) * 1e9 / items_ );
   }

 private:
   benchmark::State & state_;
   const double items_;
   std::vector< double > ours_;
   std::vector< double > references_;
};

} // namespace bench
